#include "component/factory_data.h"

#include "component/foreign.h"
#include "frame/boundary.h"
#include "frame/facts.h"

CQVFactoryData::CQVFactoryData(IQVUnknown* factory) : m_factory(factory)
{
    // What foreign code throws ends here, before its library may be closed.
    qv::core::ThrowIfFailed(
        qv::core::Boundary([&] { qv::core::TableOf(m_factory).AddRef(m_factory); }));
}

CQVFactoryData::~CQVFactoryData()
{
    // A destructor must not throw, and foreign code may.
    qv::core::Boundary([&] { qv::core::TableOf(m_factory).Release(m_factory); });
    // Refused while this library is unloading: no library is freed inside its notification.
    if (m_library != QV_LIBRARY_NONE) {
        QVModuleLibClose(qv::core::s_selfModule, m_library);
    }
}
