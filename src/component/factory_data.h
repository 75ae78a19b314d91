// One cached class.
#pragma once

#include <qvcore6/module.h>

#include "frame/ref_counted.h"

class CQVFactoryData : public CQVCoreRefCounted
{
public:
    // Adds a reference of its own to the class object.
    explicit CQVFactoryData(IQVUnknown* factory);
    ~CQVFactoryData() override;

    // The open library that the class object lies in. It is closed after the class object's
    // release.
    void TakeLibrary(QVLibrary library) { m_library = library; }
    IQVUnknown* Factory() const { return m_factory; }

private:
    IQVUnknown* m_factory;
    QVLibrary m_library = QV_LIBRARY_NONE;
};
