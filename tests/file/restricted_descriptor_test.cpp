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

bool g_refused = false;

} // namespace

extern "C"
{
    decltype(AddAccessAllowedAce) __real_AddAccessAllowedAce;

    BOOL __wrap_AddAccessAllowedAce(ACL* list, DWORD revision, DWORD mask, const SID* sid)
    {
        if (!g_refused) {
            return __real_AddAccessAllowedAce(list, revision, mask, sid);
        }
        SetLastError(ERROR_ACCESS_DENIED);
        return kFalse;
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
    QVWinFreeRestrictedSD(list);
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
        EXPECT_EQ(expected, result);
        EXPECT_EQ(expected == S_OK, list != nullptr);
        QVWinFreeRestrictedSD(list);
        EXPECT_EQ(before, qv::test::LiveBlocks());
    };
    EXPECT_EQ(2, qv::test::SweepAllocations(
                     build, [&](long, bool failed) { check(failed ? E_OUTOFMEMORY : S_OK); }));
    g_refused = true;
    build();
    check(E_ACCESSDENIED);
    g_refused = false;
}

// Damaged or too small: never written beyond its end.
TEST(Security, AddsNothingToAListThatHasNoRoom)
{
    alignas(8) unsigned char memory[64] = {};
    auto* const list = reinterpret_cast<ACL*>(memory);
    SID sid = {1, 1, SECURITY_NT_AUTHORITY, {11}};
    const auto addError = [&] {
        SetLastError(0);
        return AddAccessAllowedAce(list, 2, 1, &sid) != kFalse ? 0 : GetLastError();
    };
    EXPECT_EQ(1336u, addError());
    // Room for one entry of 8 + 12 bytes and 19 bytes.
    ASSERT_NE(kFalse, InitializeAcl(list, 47, 2));
    EXPECT_EQ(0u, addError());
    EXPECT_EQ(1344u, addError());
    memory[sizeof(ACL) + 2] = 40; // the size of the entry, one byte too much
    EXPECT_EQ(1336u, addError());
    sid.SubAuthorityCount = 9;
    EXPECT_EQ(1337u, addError());
}

} // namespace
