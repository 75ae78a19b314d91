// The restricted descriptor, and the layer's calls that it is made by.
#include <gtest/gtest.h>
#include <qvcore6/result.h>
#include <qvcore6/security.h>

#include <cstring>

#include "platform/error.h"
#include "platform/security.h"
#include "support/alloc_faults.h"

using namespace qv::platform;

namespace
{

// The call, counted from 1 over all five, that fails with error 5.
int g_failing = 0;

bool FailsNow()
{
    if (g_failing == 0 || --g_failing != 0) {
        return false;
    }
    SetLastError(ERROR_ACCESS_DENIED);
    return true;
}

} // namespace

extern "C"
{
    decltype(InitializeSecurityDescriptor) __real_InitializeSecurityDescriptor;
    decltype(SetSecurityDescriptorDacl) __real_SetSecurityDescriptorDacl;
    decltype(InitializeAcl) __real_InitializeAcl;
    decltype(AddAccessAllowedAce) __real_AddAccessAllowedAce;
    decltype(AllocateAndInitializeSid) __real_AllocateAndInitializeSid;

    BOOL __wrap_InitializeSecurityDescriptor(SECURITY_DESCRIPTOR* descriptor, DWORD revision)
    {
        return FailsNow() ? kFalse : __real_InitializeSecurityDescriptor(descriptor, revision);
    }
    BOOL __wrap_SetSecurityDescriptorDacl(SECURITY_DESCRIPTOR* descriptor, BOOL present, ACL* list,
                                          BOOL defaulted)
    {
        return FailsNow() ? kFalse
                          : __real_SetSecurityDescriptorDacl(descriptor, present, list, defaulted);
    }
    BOOL __wrap_InitializeAcl(ACL* list, DWORD size, DWORD revision)
    {
        return FailsNow() ? kFalse : __real_InitializeAcl(list, size, revision);
    }
    BOOL __wrap_AddAccessAllowedAce(ACL* list, DWORD revision, DWORD mask, const SID* sid)
    {
        return FailsNow() ? kFalse : __real_AddAccessAllowedAce(list, revision, mask, sid);
    }
    BOOL __wrap_AllocateAndInitializeSid(const SID_IDENTIFIER_AUTHORITY* authority,
                                         std::uint8_t count, DWORD s0, DWORD s1, DWORD s2, DWORD s3,
                                         DWORD s4, DWORD s5, DWORD s6, DWORD s7, SID** sid)
    {
        return FailsNow() ? kFalse
                          : __real_AllocateAndInitializeSid(authority, count, s0, s1, s2, s3, s4,
                                                            s5, s6, s7, sid);
    }
}

namespace
{

TEST(RestrictedDescriptor, HasOneEntryForAuthenticatedUsers)
{
    QVSecurityDescriptor descriptor;
    std::memset(&descriptor, 0xEE, sizeof descriptor);
    void* list = nullptr;
    ASSERT_EQ(S_OK, QVWinBuildRestrictedSD(&descriptor, 0x1F0003, &list));
    const unsigned char expected[] = {2,    0, 28, 0, 1, 0, 0, 0, 0, 0, 20, 0, 3, 0,
                                      0x1F, 0, 1,  1, 0, 0, 0, 0, 0, 5, 11, 0, 0, 0};
    EXPECT_EQ(0, std::memcmp(expected, list, sizeof expected));
    const auto* const made = reinterpret_cast<const SECURITY_DESCRIPTOR*>(&descriptor);
    EXPECT_TRUE(made->Revision == 1 && made->Control == SE_DACL_PRESENT && made->Dacl == list &&
                made->Owner == nullptr && made->Group == nullptr && made->Sacl == nullptr);
    EXPECT_EQ(Audience::Authenticated, AudienceOf(made, 0x1F0003));
    EXPECT_EQ(Audience::Nobody, AudienceOf(made, 0x1F0007));
    QVWinFreeRestrictedSD(list);
    QVWinFreeRestrictedSD(nullptr);
}

TEST(RestrictedDescriptor, LeavesNothingBehindWhenSomethingFails)
{
    QVSecurityDescriptor descriptor;
    void* list = nullptr;
    QVRESULT result = S_OK;
    long before = 0;
    const auto build = [&] {
        before = qv::test::LiveBlocks();
        list = &descriptor;
        result = QVWinBuildRestrictedSD(&descriptor, 1, &list);
    };
    const auto check = [&](QVRESULT expected) {
        const bool hasList = list != nullptr;
        QVWinFreeRestrictedSD(list);
        EXPECT_EQ(before, qv::test::LiveBlocks());
        EXPECT_EQ(expected, result);
        EXPECT_EQ(expected == S_OK, hasList);
    };
    const long failures = qv::test::SweepAllocations(
        build, [&](long, bool failed) { check(failed ? E_OUTOFMEMORY : S_OK); });
    EXPECT_GE(failures, 2);
    for (int n = 1; n <= 6; ++n) {
        g_failing = n;
        build();
        check(n <= 5 ? E_ACCESSDENIED : S_OK);
    }
    g_failing = 0;
}

TEST(Security, RefusesWhatIsNoDescriptorListOrSid)
{
    alignas(8) unsigned char memory[64] = {};
    auto* const list = reinterpret_cast<ACL*>(memory);
    SECURITY_DESCRIPTOR descriptor = {};
    SID* sid = nullptr;
    const auto makeSid = [&](std::uint8_t count) {
        return AllocateAndInitializeSid(&SECURITY_NT_AUTHORITY, count, 1, 2, 3, 4, 5, 6, 7, 8,
                                        &sid);
    };
    const auto expectError = [](DWORD error, BOOL done) {
        EXPECT_EQ(kFalse, done);
        EXPECT_EQ(error, GetLastError());
    };
    expectError(1305, InitializeSecurityDescriptor(&descriptor, 2));
    expectError(1305, SetSecurityDescriptorDacl(&descriptor, kTrue, nullptr, kFalse));
    ASSERT_NE(kFalse, InitializeSecurityDescriptor(&descriptor, 1));
    expectError(1336, SetSecurityDescriptorDacl(&descriptor, kTrue, list, kFalse));
    expectError(1337, makeSid(9));
    EXPECT_EQ(nullptr, sid);
    ASSERT_NE(kFalse, makeSid(8));
    EXPECT_EQ(40u, GetLengthSid(sid));
    expectError(122, InitializeAcl(list, 7, 2));
    expectError(87, InitializeAcl(list, 64, 1));
    expectError(87, InitializeAcl(list, 65536, 2));
    expectError(1336, AddAccessAllowedAce(list, 2, 1, sid));
    // Room for one entry of 8 + 40 bytes and seven bytes.
    ASSERT_NE(kFalse, InitializeAcl(list, 63, 2));
    expectError(1306, AddAccessAllowedAce(list, 5, 1, sid));
    EXPECT_NE(kFalse, AddAccessAllowedAce(list, 2, 1, sid));
    expectError(1344, AddAccessAllowedAce(list, 2, 1, sid));
    EXPECT_EQ(1, list->AceCount);
    list->AceCount = 2; // one more than is there
    expectError(1336, AddAccessAllowedAce(list, 2, 1, sid));
    sid->SubAuthorityCount = 9;
    expectError(1337, AddAccessAllowedAce(list, 2, 1, sid));
    EXPECT_EQ(nullptr, FreeSid(sid));
    // The states of a descriptor that name an audience.
    EXPECT_EQ(Audience::Nobody, AudienceOf(nullptr, 1));
    EXPECT_EQ(Audience::Nobody, AudienceOf(&descriptor, 1));
    ASSERT_NE(kFalse, SetSecurityDescriptorDacl(&descriptor, kTrue, nullptr, kFalse));
    EXPECT_EQ(Audience::Everybody, AudienceOf(&descriptor, 1));
}

} // namespace
