#include <qvcore6/registry.h>

#include <memory>
#include <new>

#include "config/native_key.h"
#include "config/value_types.h"
#include "platform/registry_store.h"

struct QVRegEnumTag
{
    qv::platform::HKEY m_key;
    std::uint32_t m_index;
};

namespace
{

using namespace qv;

std::uint32_t OpenForReading(std::uint32_t root, const QVWChar* keyPath, core::NativeKey& key)
{
    const core::NativeRoot native = core::MapRoot(root);
    return key.Open(native.key, keyPath, native.view | platform::KEY_READ);
}

QVRESULT MakeEnum(core::NativeKey& key, QVRegEnum* handleOut)
{
    auto* const made = new (std::nothrow) QVRegEnumTag{key.Get(), 0};
    if (made == nullptr) {
        return E_OUTOFMEMORY;
    }
    key.Release();
    *handleOut = made;
    return S_OK;
}

QVRESULT ResultOfNext(platform::LONG error)
{
    return QVResultFromNative(static_cast<std::uint32_t>(error)); // the end is E_FAIL there
}

} // namespace

QVRESULT QVRegistryOpenKeyEnum(std::uint32_t root, const QVWChar* keyPath, QVRegEnum* handleOut)
{
    *handleOut = QV_REG_ENUM_NONE;
    core::NativeKey key;
    return OpenForReading(root, keyPath, key) != 0 ? E_FAIL : MakeEnum(key, handleOut);
}

QVRESULT QVRegistryOpenValueEnum(std::uint32_t root, const QVWChar* keyPath, QVRegEnum* handleOut)
{
    *handleOut = QV_REG_ENUM_NONE;
    core::NativeKey key;
    const std::uint32_t error = OpenForReading(root, keyPath, key);
    return error != 0 ? QVResultFromNative(error) : MakeEnum(key, handleOut);
}

QVRESULT QVRegistryEnumNextKey(QVRegEnum handle, QVWChar* name, std::uint32_t* nameSize)
{
    const std::uint32_t index = handle->m_index++;
    platform::DWORD size = *nameSize;
    // No time: nobody sees it, and it would have to be looked up.
    const platform::LONG error = platform::RegEnumKeyExW(handle->m_key, index, name, &size, nullptr,
                                                         nullptr, nullptr, nullptr);
    *nameSize = size;
    return ResultOfNext(error);
}

QVRESULT QVRegistryEnumNextValue(QVRegEnum handle, QVWChar* name, std::uint32_t* nameSize,
                                 std::uint32_t* typeOut, void* data, std::uint32_t* dataSize)
{
    const std::uint32_t index = handle->m_index++;
    platform::DWORD type = platform::REG_NONE; // what a failed call may leave has no code either
    platform::DWORD nameLength = *nameSize;
    const platform::LONG error = platform::RegEnumValueW(handle->m_key, index, name, &nameLength,
                                                         nullptr, &type, data, dataSize);
    *nameSize = nameLength;
    if (typeOut != nullptr) {
        core::TypeOfEnumerated(type, typeOut);
    }
    return ResultOfNext(error);
}

QVRESULT QVRegistryCloseEnum(QVRegEnum handle)
{
    if (handle != nullptr) {
        platform::RegCloseKey(handle->m_key);
        delete handle;
    }
    return S_OK;
}
