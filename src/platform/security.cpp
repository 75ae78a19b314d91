#include "platform/security.h"

#include "platform/error.h"

namespace qv::platform
{

namespace
{

bool IsList(const ACL* list)
{
    return list->AclRevision >= 2 && list->AclRevision <= 4 && list->AclSize >= sizeof(ACL);
}

} // namespace

BOOL InitializeSecurityDescriptor(SECURITY_DESCRIPTOR* descriptor, DWORD revision)
{
    if (revision != SECURITY_DESCRIPTOR_REVISION) {
        SetLastError(ERROR_UNKNOWN_REVISION);
        return kFalse;
    }
    *descriptor = {};
    descriptor->Revision = SECURITY_DESCRIPTOR_REVISION;
    return kTrue;
}

BOOL SetSecurityDescriptorDacl(SECURITY_DESCRIPTOR* descriptor, BOOL present, ACL* list,
                               BOOL defaulted)
{
    if (descriptor->Revision != SECURITY_DESCRIPTOR_REVISION) {
        SetLastError(ERROR_UNKNOWN_REVISION);
        return kFalse;
    }
    const bool isPresent = present != kFalse;
    if (isPresent && list != nullptr && !IsList(list)) {
        SetLastError(ERROR_INVALID_ACL);
        return kFalse;
    }
    constexpr unsigned kBits = SE_DACL_PRESENT | SE_DACL_DEFAULTED;
    unsigned control = descriptor->Control & ~kBits;
    if (isPresent) {
        control |= defaulted != kFalse ? kBits : static_cast<unsigned>(SE_DACL_PRESENT);
    }
    descriptor->Control = static_cast<std::uint16_t>(control);
    descriptor->Dacl = isPresent ? list : nullptr;
    return kTrue;
}

} // namespace qv::platform
