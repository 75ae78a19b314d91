// Tests of the store itself: each begins with an empty one in a folder of its own.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>

#include "config/fresh_state.h"
#include "platform/registry_store.h"

namespace qv::test
{

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

// A key, closed at the end of the scope.
class Key
{
public:
    Key() = default;
    ~Key() { platform::RegCloseKey(m_key); }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    platform::LONG Open(std::uint32_t root, const char16_t* path,
                        platform::DWORD access = platform::KEY_ALL_ACCESS)
    {
        return platform::RegOpenKeyExW(platform::PredefinedKey(root), path, 0, access, &m_key);
    }
    platform::LONG Create(std::uint32_t root, const char16_t* path,
                          platform::DWORD access = platform::KEY_ALL_ACCESS)
    {
        return platform::RegCreateKeyExW(platform::PredefinedKey(root), path, 0, nullptr, 0, access,
                                         nullptr, &m_key, nullptr);
    }
    platform::HKEY Get() const { return m_key; }

private:
    platform::HKEY m_key = nullptr;
};

inline constexpr std::uint32_t kUserRoot = platform::HKEY_CURRENT_USER;
inline constexpr std::uint32_t kMachineRoot = platform::HKEY_LOCAL_MACHINE;

// Sets a number below a root; the error number.
inline platform::LONG SetNumber(const char16_t* path, std::uint32_t number,
                                std::uint32_t root = kUserRoot)
{
    Key key;
    const platform::LONG error = key.Create(root, path);
    return error != 0 ? error
                      : platform::RegSetValueExW(key.Get(), u"v", 0, platform::REG_DWORD, &number,
                                                 sizeof number);
}

inline platform::LONG GetNumber(const char16_t* path, std::uint32_t* number,
                                std::uint32_t root = kUserRoot)
{
    Key key;
    platform::DWORD size = sizeof *number;
    const platform::LONG error = key.Open(root, path, platform::KEY_READ);
    return error != 0
               ? error
               : platform::RegQueryValueExW(key.Get(), u"v", nullptr, nullptr, number, &size);
}

class StoreTest : public testing::Test
{
protected:
    StoreTest() : m_state(std::make_unique<FreshState>()) {}
    ~StoreTest() override { platform::CloseRegistryStores(); }

    const std::string& Folder() const { return m_state->Path(); }
    std::string DataFile() const { return Folder() + "/user/data.mdb"; }

private:
    std::unique_ptr<FreshState> m_state;
};

} // namespace qv::test
