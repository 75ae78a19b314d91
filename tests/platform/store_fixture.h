// Tests of the store itself: each begins with an empty one in a folder of its own.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "config/fresh_state.h"
#include "platform/registry_store.h"

namespace qv::test
{

using namespace qv::platform;

// Runs it in a child and gives what it returns, or -1 with the signal that ended it.
inline int InChild(const std::function<int()>& run)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(100); // a hang is a failure
        _exit(run());
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A key, made if it is not there and closed at the end of the scope.
struct Key
{
    explicit Key(const std::u16string& path, DWORD access = KEY_ALL_ACCESS,
                 std::uint32_t root = HKEY_CURRENT_USER)
    {
        error = RegCreateKeyExW(PredefinedKey(root), path.c_str(), 0, nullptr, 0, access, nullptr,
                                &handle, nullptr);
    }
    ~Key() { RegCloseKey(handle); }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    HKEY handle = nullptr;
    LONG error;
};

// The error number.
inline LONG SetNumber(const std::u16string& path, std::uint32_t number,
                      std::uint32_t root = HKEY_CURRENT_USER)
{
    const Key key(path, KEY_SET_VALUE, root);
    return key.error != 0 ? key.error
                          : RegSetValueExW(key.handle, u"v", 0, REG_DWORD, &number, sizeof number);
}

// The number, or the negative error number.
inline std::int64_t GetNumber(const std::u16string& path, std::uint32_t root = HKEY_CURRENT_USER)
{
    std::uint32_t number = 0;
    DWORD size = sizeof number;
    HKEY key = nullptr;
    LONG error = RegOpenKeyExW(PredefinedKey(root), path.c_str(), 0, KEY_READ, &key);
    if (error == 0) {
        error = RegQueryValueExW(key, u"v", nullptr, nullptr, &number, &size);
        RegCloseKey(key);
    }
    return error == 0 ? std::int64_t{number} : -error;
}

inline LONG Delete(const std::u16string& path, std::uint32_t root = HKEY_CURRENT_USER)
{
    return RegDeleteKeyExW(PredefinedKey(root), path.c_str(), 0, 0);
}

class StoreTest : public testing::Test
{
protected:
    ~StoreTest() override { CloseRegistryStores(); }

    const std::string& Folder() const { return m_state.Path(); }
    std::string DataFile() const { return Folder() + "/user/data.mdb"; }

private:
    const FreshState m_state;
};

} // namespace qv::test
