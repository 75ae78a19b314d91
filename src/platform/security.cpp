#include "platform/security.h"

#include <cstddef>
#include <cstring>

#include "platform/error.h"
#include "platform/heap.h"

namespace qv::platform
{

namespace
{

constexpr std::size_t kSidHead = offsetof(SID, SubAuthority);
constexpr std::size_t kEntryHead = offsetof(ACCESS_ALLOWED_ACE, SidStart);
constexpr std::uint8_t kAllow = 0;

BOOL Fail(DWORD error)
{
    SetLastError(error);
    return kFalse;
}

bool IsListRevision(DWORD revision)
{
    return revision >= 2 && revision <= 4;
}

bool IsList(const ACL* list)
{
    return IsListRevision(list->AclRevision) && list->AclSize >= sizeof(ACL);
}

bool IsSid(const SID* sid)
{
    return sid != nullptr && sid->Revision == 1 &&
           sid->SubAuthorityCount <= SID_MAX_SUB_AUTHORITIES;
}

// Calls take(entry, size) for each entry until it is false. Result: where the entries end, or 0 if
// they do not fit into the list.
template <class Take> std::size_t WalkEntries(const ACL* list, Take take)
{
    std::size_t at = sizeof(ACL);
    for (unsigned i = 0; i < list->AceCount; ++i) {
        ACCESS_ALLOWED_ACE entry = {};
        if (list->AclSize - at < kEntryHead) {
            return 0;
        }
        const std::byte* const bytes = reinterpret_cast<const std::byte*>(list) + at;
        std::memcpy(&entry, bytes, kEntryHead);
        if (entry.AceSize < kEntryHead || entry.AceSize > list->AclSize - at) {
            return 0;
        }
        if (!take(entry, bytes + kEntryHead)) {
            break;
        }
        at += entry.AceSize;
    }
    return at;
}

bool IsAuthenticatedUsers(const std::byte* bytes, std::size_t size)
{
    constexpr SID kWanted = {1, 1, SECURITY_NT_AUTHORITY, {SECURITY_AUTHENTICATED_USER_RID}};
    return size >= sizeof kWanted && std::memcmp(bytes, &kWanted, sizeof kWanted) == 0;
}

} // namespace

BOOL InitializeSecurityDescriptor(SECURITY_DESCRIPTOR* descriptor, DWORD revision)
{
    if (revision != SECURITY_DESCRIPTOR_REVISION) {
        return Fail(ERROR_UNKNOWN_REVISION);
    }
    *descriptor = {};
    descriptor->Revision = SECURITY_DESCRIPTOR_REVISION;
    return kTrue;
}

BOOL SetSecurityDescriptorDacl(SECURITY_DESCRIPTOR* descriptor, BOOL present, ACL* list,
                               BOOL defaulted)
{
    if (descriptor->Revision != SECURITY_DESCRIPTOR_REVISION) {
        return Fail(ERROR_UNKNOWN_REVISION);
    }
    const bool isPresent = present != kFalse;
    if (isPresent && list != nullptr && !IsList(list)) {
        return Fail(ERROR_INVALID_ACL);
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

BOOL AllocateAndInitializeSid(const SID_IDENTIFIER_AUTHORITY* authority, std::uint8_t count,
                              DWORD sub0, DWORD sub1, DWORD sub2, DWORD sub3, DWORD sub4,
                              DWORD sub5, DWORD sub6, DWORD sub7, SID** sid)
{
    *sid = nullptr;
    if (count > SID_MAX_SUB_AUTHORITIES) {
        return Fail(ERROR_INVALID_SID);
    }
    const std::size_t tail = count * sizeof(DWORD);
    void* const memory = RuntimeMalloc(kSidHead + tail);
    if (memory == nullptr) {
        return Fail(ERROR_OUTOFMEMORY);
    }
    const SID head = {1, count, *authority, {}};
    const DWORD subs[] = {sub0, sub1, sub2, sub3, sub4, sub5, sub6, sub7};
    std::memcpy(memory, &head, kSidHead);
    std::memcpy(static_cast<std::byte*>(memory) + kSidHead, subs, tail);
    *sid = static_cast<SID*>(memory);
    return kTrue;
}

DWORD GetLengthSid(const SID* sid)
{
    return static_cast<DWORD>(kSidHead + sid->SubAuthorityCount * sizeof(DWORD));
}

void* FreeSid(SID* sid)
{
    RuntimeFree(sid);
    return nullptr;
}

BOOL InitializeAcl(ACL* list, DWORD size, DWORD revision)
{
    if (size < sizeof(ACL)) {
        return Fail(ERROR_INSUFFICIENT_BUFFER);
    }
    if (!IsListRevision(revision) || size > UINT16_MAX) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    *list = {static_cast<std::uint8_t>(revision), 0, static_cast<std::uint16_t>(size), 0, 0};
    return kTrue;
}

BOOL AddAccessAllowedAce(ACL* list, DWORD revision, DWORD mask, const SID* sid)
{
    if (!IsListRevision(revision)) {
        return Fail(ERROR_REVISION_MISMATCH);
    }
    if (!IsSid(sid)) {
        return Fail(ERROR_INVALID_SID);
    }
    const std::size_t end =
        IsList(list) ? WalkEntries(list, [](auto&&...) { return true; }) : std::size_t{0};
    if (end == 0) {
        return Fail(ERROR_INVALID_ACL);
    }
    const std::size_t size = kEntryHead + GetLengthSid(sid);
    if (size > list->AclSize - end || list->AceCount == UINT16_MAX) {
        return Fail(ERROR_ALLOTTED_SPACE_EXCEEDED);
    }
    const ACCESS_ALLOWED_ACE entry = {kAllow, 0, static_cast<std::uint16_t>(size), mask, 0};
    std::byte* const place = reinterpret_cast<std::byte*>(list) + end;
    std::memcpy(place, &entry, kEntryHead);
    std::memcpy(place + kEntryHead, sid, size - kEntryHead);
    if (revision > list->AclRevision) {
        list->AclRevision = static_cast<std::uint8_t>(revision);
    }
    ++list->AceCount;
    return kTrue;
}

Audience AudienceOf(const SECURITY_DESCRIPTOR* descriptor, DWORD rights)
{
    if (descriptor == nullptr || (descriptor->Control & SE_DACL_PRESENT) == 0) {
        return Audience::Nobody;
    }
    const ACL* const list = descriptor->Dacl;
    if (list == nullptr) {
        return Audience::Everybody;
    }
    Audience audience = Audience::Nobody;
    WalkEntries(list, [&](const ACCESS_ALLOWED_ACE& entry, const std::byte* sid) {
        if (entry.AceType == kAllow && (entry.Mask & rights) == rights &&
            IsAuthenticatedUsers(sid, entry.AceSize - kEntryHead)) {
            audience = Audience::Authenticated;
        }
        return audience == Audience::Nobody;
    });
    return audience;
}

} // namespace qv::platform
