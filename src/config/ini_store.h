// The configuration tree in one ini file: a section for each key, named by its root and path.
//
// The file is "qvregistry.ini" in whatever is the current folder at each access. A key exists as a
// section with values, or as the head of deeper ones. All values are text. The file's object lives
// from the first operation to Term(), and belongs to the one migration that is running.
#pragma once

#include <qvcore6/registry.h>

#include <cstdint>
#include <string>

namespace registry
{

// Throws EQVCoreException: E_INVALIDARG for a root that does not exist, and what QVGetUserName
// gives, as the user's tree has a section of each user's own.
std::u16string MakeSectionName(std::uint32_t root, const QVWChar* keyPath);

// Those that follow turn what is thrown into a code, as exported functions do.

// A handle is QV_REG_ENUM_NONE after a failure, and an iterator otherwise. Sub-keys are none, and
// no failure, for a key that does not exist; values are QV_E_FILE_NOT_FOUND then.
QVRESULT OpenKeyEnum(std::uint32_t root, const QVWChar* keyPath, QVRegEnum* handleOut);
QVRESULT OpenValueEnum(std::uint32_t root, const QVWChar* keyPath, QVRegEnum* handleOut);
// *nameSize is the room in units going in, the length without the terminator coming out.
// QV_E_END_OF_DATA; QV_E_BUFFER_TOO_SMALL for a name that does not fit: it is passed, and cut
// without a terminator.
QVRESULT EnumNextKey(QVRegEnum handle, QVWChar* name, std::uint32_t* nameSize);
// typeOut, data and dataSize may each be null, data not without dataSize. A value that is fetched
// decides on the result: S_OK, or E_FAIL if it has gone or does not fit *dataSize bytes.
QVRESULT EnumNextValue(QVRegEnum handle, QVWChar* name, std::uint32_t* nameSize,
                       std::uint32_t* typeOut, void* data, std::uint32_t* dataSize);
QVRESULT CloseEnum(QVRegEnum handle);

// QV_E_FILE_NOT_FOUND if there is no such value, or it does not fit *dataSize bytes. The size
// coming out includes the terminator.
QVRESULT GetValue(std::uint32_t root, const QVWChar* keyPath, const QVWChar* valueName,
                  std::uint32_t* typeOut, void* data, std::uint32_t* dataSize);
// E_NOTIMPL for all but text, which ends at its terminator.
QVRESULT SetValue(std::uint32_t root, const QVWChar* keyPath, const QVWChar* valueName,
                  std::uint32_t type, const void* data, std::uint32_t size);

QVRESULT Init();
// Throws what the constructor of the file's object throws.
void EnsureIniFile();
// E_FAIL, and the file stays, while it holds text that could not be read.
QVRESULT DeleteIniFile();
QVRESULT Term();
// In a forked child, where the thread that was migrating is not.
void Forget();

} // namespace registry
