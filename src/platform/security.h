// Security descriptors, as plain memory.
#pragma once

#include "platform/types.h"

namespace qv::platform
{

inline constexpr DWORD ERROR_UNKNOWN_REVISION = 1305;
inline constexpr DWORD ERROR_INVALID_ACL = 1336;
inline constexpr DWORD SECURITY_DESCRIPTOR_REVISION = 1;
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
}

} // namespace qv::platform
