// Rights for every authenticated user, as the named objects of the library have that processes of
// several users meet on.
#pragma once

#include <qvcore6/security.h>

#include <memory>

#include "frame/exception.h"
#include "platform/security.h"

namespace qv::core
{

class RestrictedAttributes
{
public:
    // The rights that these users get. Throws EQVCoreException.
    explicit RestrictedAttributes(platform::DWORD mask)
    {
        void* list = nullptr;
        const QVRESULT built = QVWinBuildRestrictedSD(&m_descriptor, mask, &list);
        m_list.reset(list);
        ThrowIfFailed(built);
    }
    RestrictedAttributes(const RestrictedAttributes&) = delete;
    RestrictedAttributes& operator=(const RestrictedAttributes&) = delete;

    const platform::SECURITY_ATTRIBUTES* Get() const { return &m_attributes; }

private:
    struct Free
    {
        void operator()(void* list) const { QVWinFreeRestrictedSD(list); }
    };

    QVSecurityDescriptor m_descriptor;
    std::unique_ptr<void, Free> m_list;
    platform::SECURITY_ATTRIBUTES m_attributes = {sizeof m_attributes, &m_descriptor,
                                                  platform::kTrue};
};

} // namespace qv::core
