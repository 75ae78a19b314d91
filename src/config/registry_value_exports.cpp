#include <qvcore6/registry.h>

#include <algorithm>
#include <memory>
#include <new>

#include "config/expanded_value.h"
#include "config/key_deletion.h"
#include "config/native_key.h"
#include "config/value_types.h"
#include "frame/boundary.h"
#include "frame/facts.h"
#include "platform/registry_store.h"
#include "platform/security.h"

namespace
{

using namespace qv;

// The size that is enough for the text and for its expansion: a caller who asks for it has not read
// the value yet, and the next call needs room for both.
QVRESULT SizeForBoth(platform::HKEY key, const QVWChar* valueName, std::uint32_t* dataSize)
{
    const std::unique_ptr<char[]> text(new (std::nothrow) char[*dataSize]);
    if (text == nullptr) {
        return E_OUTOFMEMORY;
    }
    core::ValueBuffer buffer = {text.get(), *dataSize, *dataSize};
    const platform::LONG error =
        platform::RegQueryValueExW(key, valueName, nullptr, nullptr, buffer.data, &buffer.size);
    if (error != 0) {
        return S_OK; // it has changed since; what was found first is a fair answer
    }
    const QVRESULT result = core::ExpandInPlace(&buffer);
    *dataSize = std::max(*dataSize, buffer.size);
    return result == E_OUTOFMEMORY ? result : S_OK;
}

// Tries to set a value in a key that others keep deleting.
constexpr int kAttempts = 1000;

// A key that was deleted after it had been opened is as missing as one that could not be opened.
QVRESULT ResultOnOpenKey(std::uint32_t error)
{
    return error == platform::ERROR_KEY_DELETED ? QV_E_FILE_NOT_FOUND : QVResultFromNative(error);
}

} // namespace

QVRESULT QVRegistryGetValue(std::uint32_t root, const QVWChar* keyPath, const QVWChar* valueName,
                            std::uint32_t* typeOut, void* data, std::uint32_t* dataSize)
{
    const core::NativeRoot native = core::MapRoot(root);
    core::NativeKey key;
    if (const auto error = key.Open(native.key, keyPath, native.view | platform::KEY_READ)) {
        return QVResultFromNative(error);
    }
    const std::uint32_t capacity = dataSize != nullptr ? *dataSize : 0; // the query overwrites it
    platform::DWORD type = platform::REG_NONE;
    const auto error = static_cast<std::uint32_t>(
        platform::RegQueryValueExW(key.Get(), valueName, nullptr, &type, data, dataSize));
    const bool isTooLong = error == platform::ERROR_MORE_DATA;
    if (typeOut != nullptr && (error == 0 || isTooLong)) {
        *typeOut = isTooLong ? type : core::TypeOfValue(type);
    }
    const bool isExpandable = type == platform::REG_EXPAND_SZ && dataSize != nullptr;
    if (isExpandable && (isTooLong || (error == 0 && data == nullptr))) {
        const QVRESULT result = SizeForBoth(key.Get(), valueName, dataSize);
        if (result < 0) {
            return result;
        }
    }
    key.Close();
    if (error != 0) {
        return ResultOnOpenKey(error);
    }
    if (!isExpandable || data == nullptr) {
        return S_OK;
    }
    core::ValueBuffer buffer = {data, capacity, *dataSize};
    const QVRESULT result = core::ExpandInPlace(&buffer);
    *dataSize = buffer.size;
    return result;
}

QVRESULT QVRegistrySetValue(std::uint32_t root, const QVWChar* keyPath, const QVWChar* valueName,
                            std::uint32_t type, const void* data, std::uint32_t size)
{
    const core::NativeRoot native = core::MapRoot(root);
    std::uint32_t nativeType;
    if (!core::NativeType(type, &nativeType)) {
        return E_INVALIDARG;
    }
    platform::SECURITY_DESCRIPTOR descriptor;
    platform::SECURITY_ATTRIBUTES attributes = {sizeof attributes, &descriptor, platform::kTrue};
    const bool isNT = core::s_isNT != 0;
    if (isNT) {
        platform::InitializeSecurityDescriptor(&descriptor, platform::SECURITY_DESCRIPTOR_REVISION);
        platform::SetSecurityDescriptorDacl(&descriptor, platform::kFalse, nullptr,
                                            platform::kFalse);
    }
    // A key that somebody deletes before its value is set is made anew.
    std::uint32_t error = platform::ERROR_KEY_DELETED;
    for (int attempt = 0; error == platform::ERROR_KEY_DELETED && attempt < kAttempts; ++attempt) {
        core::NativeKey key;
        error = key.Create(native.key, keyPath, native.view | platform::KEY_ALL_ACCESS,
                           isNT ? &attributes : nullptr);
        if (error == 0) {
            error = static_cast<std::uint32_t>(
                platform::RegSetValueExW(key.Get(), valueName, 0, nativeType, data, size));
        }
        key.Close();
    }
    return QVResultFromNative(error);
}

QVRESULT QVRegistryDeleteValue(std::uint32_t root, const QVWChar* keyPath, const QVWChar* valueName)
{
    const core::NativeRoot native = core::MapRoot(root);
    core::NativeKey key;
    if (const auto error = key.Open(native.key, keyPath, native.view | platform::KEY_SET_VALUE)) {
        return QVResultFromNative(error);
    }
    const platform::LONG error = platform::RegDeleteValueW(key.Get(), valueName);
    key.Close();
    return ResultOnOpenKey(static_cast<std::uint32_t>(error));
}

QVRESULT QVRegistryDeleteKey(std::uint32_t root, const QVWChar* keyPath)
{
    return core::Boundary([&] { return core::DeleteTree(core::MapRoot(root), keyPath); });
}
