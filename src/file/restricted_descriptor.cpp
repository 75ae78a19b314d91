#include <qvcore6/security.h>

#include <memory>

#include "frame/boundary.h"
#include "platform/heap.h"
#include "platform/security.h"

using namespace qv::core;
using namespace qv::platform;

static_assert(sizeof(QVSecurityDescriptor) == sizeof(SECURITY_DESCRIPTOR) &&
              alignof(QVSecurityDescriptor) >= alignof(SECURITY_DESCRIPTOR));

namespace
{

struct SidDeleter
{
    void operator()(SID* sid) const { FreeSid(sid); }
};

struct ListDeleter
{
    void operator()(ACL* list) const { RuntimeFree(list); }
};

using ListHolder = std::unique_ptr<ACL, ListDeleter>;

void ThrowUnless(BOOL done)
{
    if (done == kFalse) {
        ThrowLastError();
    }
}

std::unique_ptr<SID, SidDeleter> MakeAuthenticatedUsers()
{
    SID* sid = nullptr;
    ThrowUnless(AllocateAndInitializeSid(&SECURITY_NT_AUTHORITY, 1, SECURITY_AUTHENTICATED_USER_RID,
                                         0, 0, 0, 0, 0, 0, 0, &sid));
    return std::unique_ptr<SID, SidDeleter>(sid);
}

} // namespace

QVRESULT QVWinBuildRestrictedSD(QVSecurityDescriptor* securityDescriptor, uint32_t accessMask,
                                void** aclOut)
{
    *aclOut = nullptr;
    return Boundary([&] {
        auto* const descriptor = reinterpret_cast<SECURITY_DESCRIPTOR*>(securityDescriptor);
        ThrowUnless(InitializeSecurityDescriptor(descriptor, SECURITY_DESCRIPTOR_REVISION));
        const auto sid = MakeAuthenticatedUsers();
        constexpr DWORD kListAndEntryHead = 16;
        const DWORD size = GetLengthSid(sid.get()) + kListAndEntryHead;
        ListHolder list(static_cast<ACL*>(RuntimeCalloc(1, size)));
        if (list == nullptr) {
            throw EQVCoreException(E_OUTOFMEMORY);
        }
        ThrowUnless(InitializeAcl(list.get(), size, ACL_REVISION));
        ThrowUnless(AddAccessAllowedAce(list.get(), ACL_REVISION, accessMask, sid.get()));
        ThrowUnless(SetSecurityDescriptorDacl(descriptor, kTrue, list.get(), kFalse));
        *aclOut = list.release();
    });
}

void QVWinFreeRestrictedSD(void* acl)
{
    RuntimeFree(acl);
}
