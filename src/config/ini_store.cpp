#include "config/ini_store.h"

#include <qvcore6/file.h>
#include <qvcore6/mutex.h>
#include <qvcore6/str.h>
#include <qvcore6/sysinfo.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <memory>
#include <string_view>

#include "config/ini_file.h"
#include "config/ini_iterators.h"
#include "frame/boundary.h"
#include "locks/lock_guard.h"

namespace registry
{

using namespace qv::core;

namespace
{

constexpr QVWChar s_iniFileName[] = u"qvregistry.ini";

constinit QVMutex s_pInitLock = nullptr; // while there is no migration
constinit std::atomic<IniFile*> s_pIniFile = nullptr;
constinit QVWChar s_iniFilePath[std::size(s_iniFileName)] = {};

constexpr const QVWChar* kRoots[] = {u"QV_HKEY_CLASSES", u"QV_HKEY_CONFIG", u"QV_HKEY_USER",
                                     u"QV_HKEY_CLASSES_64", u"QV_HKEY_CONFIG_64"};

// The user's name is asked for once in a migration: that costs as much as moving a value.
enum class Known
{
    Never, // no migration runs
    NotYet,
    InWork,
    Yes
};
constinit std::atomic<Known> s_isUserKnown = Known::Never;
constinit QVWChar s_user[127] = {};

std::u16string UserName()
{
    if (s_isUserKnown.load(std::memory_order_acquire) == Known::Yes) {
        return s_user;
    }
    QVWChar user[std::size(s_user)] = {};
    ThrowIfFailed(QVGetUserName(user, std::size(user)));
    Known notYet = Known::NotYet;
    if (s_isUserKnown.compare_exchange_strong(notYet, Known::InWork)) {
        std::copy(std::begin(user), std::end(user), s_user);
        s_isUserKnown.store(Known::Yes, std::memory_order_release);
    }
    return user;
}

IniFile& File()
{
    EnsureIniFile();
    return *s_pIniFile.load(std::memory_order_relaxed);
}

IniFileIteratorBase* IteratorOf(QVRegEnum handle)
{
    return reinterpret_cast<IniFileIteratorBase*>(handle);
}

template <class Iterator>
QVRESULT OpenEnum(std::uint32_t root, const QVWChar* keyPath, QVRegEnum* handleOut)
{
    *handleOut = QV_REG_ENUM_NONE;
    return Boundary([&] {
        IniFile& file = File();
        IniFileIteratorBase* const made =
            new Iterator(file, MakeSectionName(root, keyPath).c_str());
        *handleOut = reinterpret_cast<QVRegEnum>(made);
    });
}

// The value as bytes of wide text.
QVRESULT Fetch(const QVWChar* section, const QVWChar* valueName, void* data,
               std::uint32_t* dataSize)
{
    std::size_t length = 0;
    const QVRESULT result = File().GetValue(section, valueName, static_cast<QVWChar*>(data),
                                            *dataSize / sizeof(QVWChar), &length);
    if (result >= 0) {
        *dataSize = static_cast<std::uint32_t>((length + 1) * sizeof(QVWChar));
    }
    return result;
}

QVRESULT CopyName(const std::u16string& name, QVWChar* buffer, std::uint32_t* size)
{
    if (*size <= name.size()) {
        std::copy_n(name.begin(), *size, buffer);
        return QV_E_BUFFER_TOO_SMALL;
    }
    *size = static_cast<std::uint32_t>(name.size());
    QVStrNCpyW(buffer, name.c_str(), *size + 1);
    return S_OK;
}

} // namespace

std::u16string MakeSectionName(std::uint32_t root, const QVWChar* keyPath)
{
    if (root >= std::size(kRoots)) {
        throw EQVCoreException(E_INVALIDARG);
    }
    const std::u16string_view path = keyPath;
    std::u16string name;
    name.reserve(std::size(s_user) + path.size() + 32);
    name = kRoots[root];
    if (root == QV_HKEY_USER) {
        name.append(1, u'\\').append(UserName());
    }
    if (!path.empty()) {
        name.append(1, u'\\').append(path);
    }
    return name;
}

QVRESULT OpenKeyEnum(std::uint32_t root, const QVWChar* keyPath, QVRegEnum* handleOut)
{
    return OpenEnum<IniFileSetIterator>(root, keyPath, handleOut);
}

QVRESULT OpenValueEnum(std::uint32_t root, const QVWChar* keyPath, QVRegEnum* handleOut)
{
    return OpenEnum<IniFileKeyIterator>(root, keyPath, handleOut);
}

QVRESULT EnumNextKey(QVRegEnum handle, QVWChar* name, std::uint32_t* nameSize)
{
    return Boundary([&] {
        EnsureIniFile();
        IniFileIteratorBase& iterator = *IteratorOf(handle);
        return iterator.HasNext() ? CopyName(iterator.Next(), name, nameSize) : QV_E_END_OF_DATA;
    });
}

QVRESULT EnumNextValue(QVRegEnum handle, QVWChar* name, std::uint32_t* nameSize,
                       std::uint32_t* typeOut, void* data, std::uint32_t* dataSize)
{
    return Boundary([&] {
        EnsureIniFile();
        IniFileIteratorBase& iterator = *IteratorOf(handle);
        if (!iterator.HasNext()) {
            return QV_E_END_OF_DATA;
        }
        const std::u16string next = iterator.Next();
        const QVRESULT result = CopyName(next, name, nameSize);
        if (typeOut != nullptr) {
            *typeOut = QV_REGTYPE_STRING;
        }
        if (data == nullptr) {
            return result;
        }
        return Fetch(iterator.GetName().c_str(), next.c_str(), data, dataSize) < 0 ? E_FAIL : S_OK;
    });
}

QVRESULT CloseEnum(QVRegEnum handle)
{
    return Boundary([&] {
        EnsureIniFile();
        delete IteratorOf(handle);
    });
}

QVRESULT GetValue(std::uint32_t root, const QVWChar* keyPath, const QVWChar* valueName,
                  std::uint32_t* typeOut, void* data, std::uint32_t* dataSize)
{
    return Boundary([&] {
        EnsureIniFile();
        const std::u16string section = MakeSectionName(root, keyPath);
        if (Fetch(section.c_str(), valueName, data, dataSize) < 0) {
            return QV_E_FILE_NOT_FOUND;
        }
        *typeOut = QV_REGTYPE_STRING;
        return S_OK;
    });
}

QVRESULT SetValue(std::uint32_t root, const QVWChar* keyPath, const QVWChar* valueName,
                  std::uint32_t type, const void* data, std::uint32_t /*size*/)
{
    return Boundary([&] {
        IniFile& file = File();
        if (type != QV_REGTYPE_STRING) {
            return E_NOTIMPL;
        }
        const std::u16string section = MakeSectionName(root, keyPath);
        const auto* const text = static_cast<const QVWChar*>(data);
        return file.SetValue(section.c_str(), valueName, text, true) == 0 ? S_OK : E_FAIL;
    });
}

QVRESULT Init()
{
    QVMutexCreate("registry::s_pInitLock", 0, &s_pInitLock);
    s_isUserKnown = Known::NotYet;
    return S_OK;
}

void EnsureIniFile()
{
    if (s_pIniFile.load(std::memory_order_acquire) != nullptr) {
        return;
    }
    const LockGuard locked(s_pInitLock != nullptr ? s_pInitLock : QV_MUTEX_NONE);
    if (s_pIniFile.load(std::memory_order_relaxed) == nullptr) {
        std::copy(std::begin(s_iniFileName), std::end(s_iniFileName), s_iniFilePath);
        s_pIniFile.store(new IniFile(s_iniFilePath), std::memory_order_release);
    }
}

QVRESULT DeleteIniFile()
{
    const IniFile* const file = s_pIniFile.load(std::memory_order_acquire);
    if (file == nullptr) {
        return S_OK;
    }
    // It was moved nowhere, and would be lost.
    if (file->HasUnread()) {
        return E_FAIL;
    }
    const QVRESULT result = QVFileDelete(s_iniFilePath);
    return result == QV_E_FILE_NOT_FOUND ? S_OK : result;
}

QVRESULT Term()
{
    const std::unique_ptr<IniFile> file(s_pIniFile.exchange(nullptr));
    if (file != nullptr) {
        file->SaveAgain();
    }
    if (s_pInitLock != nullptr && s_pInitLock != QV_MUTEX_NONE) {
        QVMutexDestroy(s_pInitLock);
    }
    s_pInitLock = nullptr;
    s_isUserKnown = Known::Never;
    return S_OK;
}

void Forget()
{
    s_pIniFile = nullptr;
    s_pInitLock = nullptr;
    s_isUserKnown = Known::Never;
}

} // namespace registry
