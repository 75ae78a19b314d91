#include "component/factory_data.h"

#include "frame/boundary.h"
#include "frame/facts.h"

CQVFactoryData::CQVFactoryData(IQVUnknown* factory, QVLibrary library)
    : m_factory(factory), m_library(library)
{
    // What foreign code throws ends here, before its library may be closed.
    qv::core::ThrowIfFailed(qv::core::Boundary([&] { m_factory->AddRef(); }));
}

CQVFactoryData::~CQVFactoryData()
{
    // A destructor must not throw, and foreign code may.
    qv::core::Boundary([&] { m_factory->Release(); });
    // Refused while this library is unloading: no library is freed inside its notification.
    QVModuleLibClose(qv::core::SelfModule(), m_library);
}
