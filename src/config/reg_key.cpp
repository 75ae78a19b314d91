#include "config/reg_key.h"

#include <cstddef>
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

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
    while (!m_hasPendingKey && EnumNextKey(name, &size) >= 0) {
        m_pendingKey.assign(name, size);
        // A sub-key of a root that has no name would be the root again, and the walk endless.
        m_hasPendingKey = size != 0 || !m_path.empty();
        size = kNameSize;
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

} // namespace qv::core
