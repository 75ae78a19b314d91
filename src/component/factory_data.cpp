#include "component/factory_data.h"

#include "frame/boundary.h"
#include "frame/facts.h"

CQVFactoryData::CQVFactoryData(IQVUnknown* factory) : m_factory(factory)
{
    // What foreign code throws ends here, before its library may be closed.
    qv::core::ThrowIfFailed(qv::core::Boundary([&] { m_factory->AddRef(); }));
}

CQVFactoryData::~CQVFactoryData()
{
    // A destructor must not throw, and foreign code may.
    qv::core::Boundary([&] { m_factory->Release(); });
    // Refused while this library is unloading: no library is freed inside its notification.
    if (m_library != QV_LIBRARY_NONE) {
        QVModuleLibClose(qv::core::SelfModule(), m_library);
    }
}
