#include "config/native_key.h"

#include <qvcore6/registry.h>

#include "frame/facts.h"

namespace qv::core
{

NativeRoot MapRoot(std::uint32_t root)
{
    using namespace platform;
    const DWORD view = s_isWow64 != 0 ? KEY_WOW64_32KEY : 0;
    const DWORD view64 = s_isWow64 != 0 ? KEY_WOW64_64KEY : 0;
    switch (root) {
    case QV_HKEY_CLASSES:
        return {PredefinedKey(HKEY_CLASSES_ROOT), view};
    case QV_HKEY_CONFIG:
        return {PredefinedKey(HKEY_LOCAL_MACHINE), view};
    case QV_HKEY_USER:
        return {PredefinedKey(HKEY_CURRENT_USER), 0};
    case QV_HKEY_CLASSES_64:
        return {PredefinedKey(HKEY_CLASSES_ROOT), view64};
    case QV_HKEY_CONFIG_64:
        return {PredefinedKey(HKEY_LOCAL_MACHINE), view64};
    case HKEY_CLASSES_ROOT:
    case HKEY_CURRENT_USER:
    case HKEY_LOCAL_MACHINE:
        return {PredefinedKey(root), 0};
    default:
        return {reinterpret_cast<HKEY>(~std::uintptr_t{0}), 0};
    }
}

std::uint32_t NativeKey::Open(platform::HKEY key, const char16_t* path, platform::DWORD access)
{
    return static_cast<std::uint32_t>(platform::RegOpenKeyExW(key, path, 0, access, &m_key));
}

std::uint32_t NativeKey::Create(platform::HKEY key, const char16_t* path, platform::DWORD access,
                                const platform::SECURITY_ATTRIBUTES* attributes)
{
    constexpr platform::DWORD kNonVolatile = 0;
    platform::DWORD disposition;
    return static_cast<std::uint32_t>(platform::RegCreateKeyExW(
        key, path, 0, nullptr, kNonVolatile, access, attributes, &m_key, &disposition));
}

void NativeKey::Close()
{
    if (m_key != nullptr) {
        platform::RegCloseKey(Release());
    }
}

platform::HKEY NativeKey::Release()
{
    const platform::HKEY key = m_key;
    m_key = nullptr;
    return key;
}

} // namespace qv::core
