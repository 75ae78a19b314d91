// The working parts of QVLibOpen, QVLibClose and QVLibGetSymbol.
#pragma once

#include <qvcore6/module.h>

// Has no data: the platform's loader keeps the books.
class CQVLibraryManager
{
public:
    // Each throws the code of the platform's error.
    QVLibrary Open(const QVWChar* path);
    void Close(QVLibrary library);
    void* GetSymbol(QVLibrary library, const QVWChar* name);
};
