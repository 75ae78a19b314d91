// Security descriptors, as plain memory.
#pragma once

#include "platform/types.h"

namespace qv::platform
{

inline constexpr DWORD ERROR_UNKNOWN_REVISION = 1305;
inline constexpr DWORD ERROR_REVISION_MISMATCH = 1306;
inline constexpr DWORD ERROR_INVALID_ACL = 1336;
inline constexpr DWORD ERROR_INVALID_SID = 1337;
inline constexpr DWORD ERROR_ALLOTTED_SPACE_EXCEEDED = 1344;
inline constexpr DWORD SECURITY_DESCRIPTOR_REVISION = 1;
inline constexpr DWORD ACL_REVISION = 2;
inline constexpr std::uint8_t SID_MAX_SUB_AUTHORITIES = 8;
inline constexpr DWORD SECURITY_AUTHENTICATED_USER_RID = 11;
inline constexpr std::uint16_t SE_DACL_PRESENT = 0x4;
inline constexpr std::uint16_t SE_DACL_DEFAULTED = 0x8;

struct ACL
{
    std::uint8_t AclRevision;
    std::uint8_t Sbz1;
    std::uint16_t AclSize;
    std::uint16_t AceCount;
    std::uint16_t Sbz2;
};

struct SID_IDENTIFIER_AUTHORITY
{
    std::uint8_t Value[6];
};

inline constexpr SID_IDENTIFIER_AUTHORITY SECURITY_NT_AUTHORITY = {{0, 0, 0, 0, 0, 5}};

// As many sub-authorities as it says lie there.
struct SID
{
    std::uint8_t Revision;
    std::uint8_t SubAuthorityCount;
    SID_IDENTIFIER_AUTHORITY IdentifierAuthority;
    DWORD SubAuthority[1];
};

// An entry that allows; the SID takes the place of its last member and what follows.
struct ACCESS_ALLOWED_ACE
{
    std::uint8_t AceType;
    std::uint8_t AceFlags;
    std::uint16_t AceSize;
    DWORD Mask;
    DWORD SidStart;
};

struct SECURITY_DESCRIPTOR
{
    std::uint8_t Revision;
    std::uint8_t Sbz1;
    std::uint16_t Control;
    void* Owner;
    void* Group;
    ACL* Sacl;
    ACL* Dacl;
};

struct SECURITY_ATTRIBUTES
{
    DWORD nLength;
    void* lpSecurityDescriptor;
    BOOL bInheritHandle;
};

extern "C"
{
    // An empty descriptor. Error 1305 for a revision that is not 1.
    BOOL InitializeSecurityDescriptor(SECURITY_DESCRIPTOR* descriptor, DWORD revision);
    // The list is kept by address, not copied; a null one that is present lets everybody in.
    // Errors: 1305 for what is no descriptor, 1336 for what is no list.
    BOOL SetSecurityDescriptorDacl(SECURITY_DESCRIPTOR* descriptor, BOOL present, ACL* list,
                                   BOOL defaulted);

    // A SID with the first count of the sub-authorities, for FreeSid. Errors: 1337 for more than 8,
    // 14 without memory; the SID is null then.
    BOOL AllocateAndInitializeSid(const SID_IDENTIFIER_AUTHORITY* authority, std::uint8_t count,
                                  DWORD sub0, DWORD sub1, DWORD sub2, DWORD sub3, DWORD sub4,
                                  DWORD sub5, DWORD sub6, DWORD sub7, SID** sid);
    DWORD GetLengthSid(const SID* sid);
    // Null is allowed. Always null.
    void* FreeSid(SID* sid);

    // An empty list. Errors: 122 for less than the head's 8 bytes, 87 for a size that a list cannot
    // have and for a revision other than 2 to 4.
    BOOL InitializeAcl(ACL* list, DWORD size, DWORD revision);
    // Errors: 1306 for a revision other than 2 to 4, 1336 for what is no list, 1337 for what is no
    // SID, 1344 if the list has no room.
    BOOL AddAccessAllowedAce(ACL* list, DWORD revision, DWORD mask, const SID* sid);
}

// Whom a descriptor lets in beside the owner of what it guards.
enum class Audience
{
    Nobody,
    Authenticated,
    Everybody,
};

// Null if there are none.
inline const SECURITY_DESCRIPTOR* DescriptorOf(const SECURITY_ATTRIBUTES* attributes)
{
    return attributes != nullptr
               ? static_cast<const SECURITY_DESCRIPTOR*>(attributes->lpSecurityDescriptor)
               : nullptr;
}

// Null is a descriptor that says nothing. An entry counts if it grants all of the rights to the
// authenticated users; others are for nobody.
Audience AudienceOf(const SECURITY_DESCRIPTOR* descriptor, DWORD rights);

} // namespace qv::platform
