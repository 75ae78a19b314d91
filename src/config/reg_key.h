// One position in a store of the configuration, and the walk from there.
#pragma once

#include <qvcore6/registry.h>

#include <cstdint>
#include <string>

#include "config/ini_store.h"
#include "frame/ref_counted.h"

namespace qv::core
{

// Opens its two enumerations at first need and holds them to the end; there is no way back. For one
// thread at a time.
class CRegKey : public CQVCoreRefCounted
{
public:
    CRegKey(std::uint32_t root, const QVWChar* path) : m_root(root), m_path(path) {}

    virtual QVRESULT OpenKeyEnum() = 0;
    virtual QVRESULT EnumNextKey(QVWChar* name, std::uint32_t* nameSize) = 0;
    virtual QVRESULT OpenValueEnum() = 0;
    virtual QVRESULT EnumNextValue(QVWChar* name, std::uint32_t* nameSize) = 0;
    virtual QVRESULT CloseEnum(QVRegEnum handle) = 0;
    virtual RefPtr<CRegKey> CreateKey(std::uint32_t root, const QVWChar* path) = 0;
    virtual QVRESULT GetValue(const QVWChar* valueName, std::uint32_t* typeOut, void* data,
                              std::uint32_t* dataSize) = 0;
    // In this key's store, wherever the key itself is.
    virtual QVRESULT SetValue(std::uint32_t root, const QVWChar* keyPath, const QVWChar* valueName,
                              std::uint32_t type, const void* data, std::uint32_t size) = 0;

    // For a kind of store: 0 is native, 1 the ini file. Throws QV_E_UNKNOWN_STORE_KIND for others.
    static RefPtr<CRegKey> Create(std::uint32_t root, const QVWChar* path, std::uint32_t kind);

    // Both fetch a name ahead, once; names of 256 units and more end the enumeration. Sub-keys that
    // cannot be enumerated are thrown as that code; values then count as none.
    bool HasNextKey();
    bool HasNextValue();
    // Throws QV_E_END_OF_DATA at the end.
    RefPtr<CRegKey> NextKey();
    // The name that HasNextValue() has found, once.
    std::u16string TakeValueName();

    // A value that cannot be read, has more than 2,048 bytes, or cannot be written stays behind.
    void CopyValue(const QVWChar* valueName, CRegKey& target);
    // Everything at and below the source, sub-keys before values.
    static void CopyTree(CRegKey& source, CRegKey& target);

protected:
    std::uint32_t m_root;
    std::u16string m_path;
    QVRegEnum m_keyEnum = QV_REG_ENUM_NONE;
    QVRegEnum m_valueEnum = QV_REG_ENUM_NONE;

private:
    bool m_hasPendingKey = false;
    std::u16string m_pendingKey;
    bool m_hasPendingValue = false;
    std::u16string m_pendingValue;
};

// The calls of a store, with the arguments of the operations above.
struct StoreCalls
{
    decltype(&QVRegistryOpenKeyEnum) openKeyEnum;
    decltype(&QVRegistryEnumNextKey) enumNextKey;
    decltype(&QVRegistryOpenValueEnum) openValueEnum;
    decltype(&QVRegistryEnumNextValue) enumNextValue;
    decltype(&QVRegistryCloseEnum) closeEnum;
    decltype(&QVRegistryGetValue) getValue;
    decltype(&QVRegistrySetValue) setValue;
};

template <const StoreCalls& store> class StoreRegKey final : public CRegKey
{
public:
    using CRegKey::CRegKey;
    ~StoreRegKey() override
    {
        for (const QVRegEnum handle : {m_keyEnum, m_valueEnum}) {
            if (handle != QV_REG_ENUM_NONE) {
                store.closeEnum(handle);
            }
        }
    }

    QVRESULT OpenKeyEnum() override
    {
        return store.openKeyEnum(m_root, m_path.c_str(), &m_keyEnum);
    }
    QVRESULT EnumNextKey(QVWChar* name, std::uint32_t* nameSize) override
    {
        return store.enumNextKey(m_keyEnum, name, nameSize);
    }
    QVRESULT OpenValueEnum() override
    {
        return store.openValueEnum(m_root, m_path.c_str(), &m_valueEnum);
    }
    QVRESULT EnumNextValue(QVWChar* name, std::uint32_t* nameSize) override
    {
        return store.enumNextValue(m_valueEnum, name, nameSize, nullptr, nullptr, nullptr);
    }
    QVRESULT CloseEnum(QVRegEnum handle) override { return store.closeEnum(handle); }
    RefPtr<CRegKey> CreateKey(std::uint32_t root, const QVWChar* path) override
    {
        return RefPtr<CRegKey>(new StoreRegKey(root, path));
    }
    QVRESULT GetValue(const QVWChar* valueName, std::uint32_t* typeOut, void* data,
                      std::uint32_t* dataSize) override
    {
        return store.getValue(m_root, m_path.c_str(), valueName, typeOut, data, dataSize);
    }
    QVRESULT SetValue(std::uint32_t root, const QVWChar* keyPath, const QVWChar* valueName,
                      std::uint32_t type, const void* data, std::uint32_t size) override
    {
        return store.setValue(root, keyPath, valueName, type, data, size);
    }
};

inline constexpr StoreCalls kNativeCalls = {
    QVRegistryOpenKeyEnum, QVRegistryEnumNextKey, QVRegistryOpenValueEnum, QVRegistryEnumNextValue,
    QVRegistryCloseEnum,   QVRegistryGetValue,    QVRegistrySetValue};
inline constexpr StoreCalls kIniCalls = {
    registry::OpenKeyEnum, registry::EnumNextKey, registry::OpenValueEnum, registry::EnumNextValue,
    registry::CloseEnum,   registry::GetValue,    registry::SetValue};

using CNativeRegKey = StoreRegKey<kNativeCalls>;
using CIniRegKey = StoreRegKey<kIniCalls>;

} // namespace qv::core
