// From the roots of the interface to native keys.
#pragma once

#include "platform/registry_store.h"
#include "platform/types.h"

namespace qv::core
{

struct NativeRoot
{
    platform::HKEY key;
    platform::DWORD view; // goes into the access of every open and create
};

// A root that does not exist gives a key that every native call refuses.
NativeRoot MapRoot(std::uint32_t root);

// An open key, closed at the end of the scope.
class NativeKey
{
public:
    NativeKey() = default;
    ~NativeKey() { Close(); }
    NativeKey(const NativeKey&) = delete;
    NativeKey& operator=(const NativeKey&) = delete;
    NativeKey(NativeKey&& other) noexcept : m_key(other.Release()) {}
    NativeKey& operator=(NativeKey&&) = delete;

    // The native error number.
    std::uint32_t Open(platform::HKEY key, const char16_t* path, platform::DWORD access);
    std::uint32_t Create(platform::HKEY key, const char16_t* path, platform::DWORD access,
                         const platform::SECURITY_ATTRIBUTES* attributes);
    void Close();

    platform::HKEY Get() const { return m_key; }
    platform::HKEY Release();

private:
    platform::HKEY m_key = nullptr;
};

} // namespace qv::core
