// Types, error numbers and constants of the platform's calls, with their documented values.
#pragma once

#include <cstdint>

namespace qv::platform
{

using BOOL = std::int32_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using UINT = std::uint32_t;
using LCID = std::uint32_t;
using WCHAR = char16_t;

inline constexpr BOOL kTrue = 1;
inline constexpr BOOL kFalse = 0;

inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_INVALID_FUNCTION = 1;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_TOO_MANY_OPEN_FILES = 4;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_OUTOFMEMORY = 14;
inline constexpr DWORD ERROR_NO_MORE_FILES = 18;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;
inline constexpr DWORD ERROR_SHARING_VIOLATION = 32;
inline constexpr DWORD ERROR_LOCK_VIOLATION = 33;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_BROKEN_PIPE = 109;
inline constexpr DWORD ERROR_BUFFER_OVERFLOW = 111;
inline constexpr DWORD ERROR_DISK_FULL = 112;
inline constexpr DWORD ERROR_CALL_NOT_IMPLEMENTED = 120;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
inline constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
inline constexpr DWORD ERROR_NEGATIVE_SEEK = 131;
inline constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
inline constexpr DWORD ERROR_NOT_LOCKED = 158;
inline constexpr DWORD ERROR_BAD_PATHNAME = 161;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_BAD_EXE_FORMAT = 193;
inline constexpr DWORD ERROR_FILENAME_EXCED_RANGE = 206;
inline constexpr DWORD ERROR_FILE_TOO_LARGE = 223;
inline constexpr DWORD ERROR_NO_DATA = 232;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_DIRECTORY = 267;
inline constexpr DWORD ERROR_INVALID_ADDRESS = 487;
inline constexpr DWORD ERROR_REGISTRY_CORRUPT = 1015;
inline constexpr DWORD ERROR_KEY_DELETED = 1018;
inline constexpr DWORD ERROR_IO_DEVICE = 1117;
inline constexpr DWORD ERROR_IO_PENDING = 997;
inline constexpr DWORD ERROR_NO_SYSTEM_RESOURCES = 1450;
inline constexpr DWORD ERROR_COMMITMENT_LIMIT = 1455;
inline constexpr DWORD ERROR_CANT_RESOLVE_FILENAME = 1921;

// A key of the registry: one of the predefined ones below, or an open key of the layer's.
struct RegistryKey;
using HKEY = RegistryKey*;

// A point in time in steps of 100 nanoseconds since 1601-01-01 UTC.
struct FILETIME
{
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

// The address of a function whose type the caller knows.
using FARPROC = void (*)();

} // namespace qv::platform
