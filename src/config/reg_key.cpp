#include "config/reg_key.h"

#include <cstddef>
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

#include "config/ini_store.h"
#include "frame/exception.h"

namespace qv::core
{

namespace
{

constexpr std::uint32_t kNameSize = 256;   // units
constexpr std::uint32_t kValueSize = 2048; // bytes

enum StoreKind : std::uint32_t
{
    kNativeStore,
    kIniStore,
};

} // namespace

RefPtr<CRegKey> CRegKey::Create(std::uint32_t root, const QVWChar* path, std::uint32_t kind)
{
    switch (kind) {
    case kNativeStore:
        return RefPtr<CRegKey>(new CNativeRegKey(root, path));
    case kIniStore:
        return RefPtr<CRegKey>(new CIniRegKey(root, path));
    default:
        throw EQVCoreException(QV_E_UNKNOWN_STORE_KIND);
    }
}

bool CRegKey::HasNextKey()
{
    if (m_keyEnum == QV_REG_ENUM_NONE) {
        ThrowIfFailed(OpenKeyEnum());
    }
    QVWChar name[kNameSize];
    std::uint32_t size = kNameSize;
    if (!m_hasPendingKey && EnumNextKey(name, &size) >= 0) {
        m_pendingKey.assign(name, size);
        m_hasPendingKey = true;
    }
    return m_hasPendingKey;
}

bool CRegKey::HasNextValue()
{
    if (m_valueEnum == QV_REG_ENUM_NONE && OpenValueEnum() < 0) {
        return m_hasPendingValue;
    }
    QVWChar name[kNameSize];
    std::uint32_t size = kNameSize;
    if (!m_hasPendingValue && EnumNextValue(name, &size) >= 0) {
        m_pendingValue.assign(name, size);
        m_hasPendingValue = true;
    }
    return m_hasPendingValue;
}

RefPtr<CRegKey> CRegKey::NextKey()
{
    if (!m_hasPendingKey && !HasNextKey()) {
        throw EQVCoreException(QV_E_END_OF_DATA);
    }
    m_hasPendingKey = false;
    if (!m_path.empty()) {
        m_pendingKey.insert(0, m_path + u'\\');
    }
    return CreateKey(m_root, m_pendingKey.c_str());
}

std::u16string CRegKey::TakeValueName()
{
    m_hasPendingValue = false;
    return std::move(m_pendingValue);
}

void CRegKey::CopyValue(const QVWChar* valueName, CRegKey& target)
{
    // A text in the native store need not have a terminator, nor whole units.
    constexpr std::uint32_t kEnd = 0;
    alignas(std::max_align_t) char data[kValueSize + sizeof kEnd];
    std::uint32_t type = 0;
    std::uint32_t size = kValueSize;
    if (GetValue(valueName, &type, data, &size) < 0) {
        return;
    }
    std::memcpy(data + size, &kEnd, sizeof kEnd);
    target.SetValue(m_root, m_path.c_str(), valueName, type, data, size);
}

// Depth first, with the levels on the heap: a tree may be deeper than the stack.
void CRegKey::CopyTree(CRegKey& source, CRegKey& target)
{
    std::vector<RefPtr<CRegKey>> below;
    for (;;) {
        CRegKey& key = below.empty() ? source : *below.back().Get();
        if (key.HasNextKey()) {
            below.push_back(key.NextKey());
            continue;
        }
        while (key.HasNextValue()) {
            key.CopyValue(key.TakeValueName().c_str(), target);
        }
        if (below.empty()) {
            return;
        }
        below.pop_back();
    }
}

CNativeRegKey::~CNativeRegKey()
{
    for (const QVRegEnum handle : {m_keyEnum, m_valueEnum}) {
        if (handle != QV_REG_ENUM_NONE) {
            QVRegistryCloseEnum(handle);
        }
    }
}

QVRESULT CNativeRegKey::OpenKeyEnum()
{
    return QVRegistryOpenKeyEnum(m_root, m_path.c_str(), &m_keyEnum);
}

QVRESULT CNativeRegKey::EnumNextKey(QVWChar* name, std::uint32_t* nameSize)
{
    return QVRegistryEnumNextKey(m_keyEnum, name, nameSize);
}

QVRESULT CNativeRegKey::OpenValueEnum()
{
    return QVRegistryOpenValueEnum(m_root, m_path.c_str(), &m_valueEnum);
}

QVRESULT CNativeRegKey::EnumNextValue(QVWChar* name, std::uint32_t* nameSize)
{
    return QVRegistryEnumNextValue(m_valueEnum, name, nameSize, nullptr, nullptr, nullptr);
}

QVRESULT CNativeRegKey::CloseEnum(QVRegEnum handle)
{
    return QVRegistryCloseEnum(handle);
}

RefPtr<CRegKey> CNativeRegKey::CreateKey(std::uint32_t root, const QVWChar* path)
{
    return RefPtr<CRegKey>(new CNativeRegKey(root, path));
}

QVRESULT CNativeRegKey::GetValue(const QVWChar* valueName, std::uint32_t* typeOut, void* data,
                                 std::uint32_t* dataSize)
{
    return QVRegistryGetValue(m_root, m_path.c_str(), valueName, typeOut, data, dataSize);
}

QVRESULT CNativeRegKey::SetValue(std::uint32_t root, const QVWChar* keyPath,
                                 const QVWChar* valueName, std::uint32_t type, const void* data,
                                 std::uint32_t size)
{
    return QVRegistrySetValue(root, keyPath, valueName, type, data, size);
}

CIniRegKey::~CIniRegKey()
{
    for (const QVRegEnum handle : {m_keyEnum, m_valueEnum}) {
        if (handle != QV_REG_ENUM_NONE) {
            registry::CloseEnum(handle);
        }
    }
}

QVRESULT CIniRegKey::OpenKeyEnum()
{
    return registry::OpenKeyEnum(m_root, m_path.c_str(), &m_keyEnum);
}

QVRESULT CIniRegKey::EnumNextKey(QVWChar* name, std::uint32_t* nameSize)
{
    return registry::EnumNextKey(m_keyEnum, name, nameSize);
}

QVRESULT CIniRegKey::OpenValueEnum()
{
    return registry::OpenValueEnum(m_root, m_path.c_str(), &m_valueEnum);
}

QVRESULT CIniRegKey::EnumNextValue(QVWChar* name, std::uint32_t* nameSize)
{
    return registry::EnumNextValue(m_valueEnum, name, nameSize, nullptr, nullptr, nullptr);
}

QVRESULT CIniRegKey::CloseEnum(QVRegEnum handle)
{
    return registry::CloseEnum(handle);
}

RefPtr<CRegKey> CIniRegKey::CreateKey(std::uint32_t root, const QVWChar* path)
{
    return RefPtr<CRegKey>(new CIniRegKey(root, path));
}

QVRESULT CIniRegKey::GetValue(const QVWChar* valueName, std::uint32_t* typeOut, void* data,
                              std::uint32_t* dataSize)
{
    return registry::GetValue(m_root, m_path.c_str(), valueName, typeOut, data, dataSize);
}

QVRESULT CIniRegKey::SetValue(std::uint32_t root, const QVWChar* keyPath, const QVWChar* valueName,
                              std::uint32_t type, const void* data, std::uint32_t size)
{
    return registry::SetValue(root, keyPath, valueName, type, data, size);
}

} // namespace qv::core
