#include <qvcore6/module.h>

#include "component/library_manager.h"
#include "component/managers.h"
#include "frame/boundary.h"

using namespace qv::core;

QVRESULT QVLibOpen(const QVWChar* path, QVLibrary* libraryOut)
{
    *libraryOut = QV_LIBRARY_NONE;
    return Boundary([&] { *libraryOut = LibraryManager().Open(path); });
}

QVRESULT QVLibClose(QVLibrary library)
{
    return Boundary([&] { LibraryManager().Close(library); });
}

QVRESULT QVLibGetSymbol(QVLibrary library, const QVWChar* name, void** symbolOut)
{
    *symbolOut = nullptr;
    return Boundary([&] { *symbolOut = LibraryManager().GetSymbol(library, name); });
}
