// One cached class.
#pragma once

#include <qvcore6/module.h>

#include "frame/ref_counted.h"

class CQVFactoryData : public CQVCoreRefCounted
{
public:
    // Adds a reference of its own to the class object, and takes over the open library.
    CQVFactoryData(IQVUnknown* factory, QVLibrary library);
    ~CQVFactoryData() override;

    IQVUnknown* Factory() const { return m_factory; }

private:
    IQVUnknown* m_factory;
    QVLibrary m_library;
};
