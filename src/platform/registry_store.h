// The registry: a tree of keys with typed values, shared by all processes of the machine.
//
// Calls return their error number and leave the last error alone. Names compare without case and
// keep the form in which they were first written. '\' separates the components of a path: a leading
// one and an empty component in the middle are 161, one at the end is ignored; a component of more
// than 255 units is 87. A null or empty path is the key itself.
//
// Each call is one transaction: it sees one state of the store, and its change is seen whole or not
// at all. A change whose call returned 0 survives the end of the process, however that comes.
//
// Common errors: 6 for what is no key, 1018 for an open key that has been deleted, 5 for a missing
// right or a store that may only be read, 14, 112 disk full, 1450 the store's size or its table of
// readers is used up, 1015 a damaged or foreign store (it is left as it is).
#pragma once

#include "platform/types.h"

namespace qv::platform
{

// The predefined keys. They need no closing.
inline constexpr DWORD HKEY_CLASSES_ROOT = 0x80000000;
inline constexpr DWORD HKEY_CURRENT_USER = 0x80000001;
inline constexpr DWORD HKEY_LOCAL_MACHINE = 0x80000002;

inline HKEY PredefinedKey(DWORD number)
{
    return reinterpret_cast<HKEY>(static_cast<std::uintptr_t>(number));
}

inline constexpr DWORD KEY_QUERY_VALUE = 0x1;
inline constexpr DWORD KEY_SET_VALUE = 0x2;
inline constexpr DWORD KEY_CREATE_SUB_KEY = 0x4;
inline constexpr DWORD KEY_ENUMERATE_SUB_KEYS = 0x8;
inline constexpr DWORD KEY_READ = 0x20019;
inline constexpr DWORD KEY_ALL_ACCESS = 0xF003F;
// Views: the machine's keys are two trees, one for programs of each width. No view is the 64-bit
// one.
inline constexpr DWORD KEY_WOW64_64KEY = 0x100;
inline constexpr DWORD KEY_WOW64_32KEY = 0x200;

inline constexpr DWORD REG_NONE = 0;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_BINARY = 3;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_MULTI_SZ = 7;
inline constexpr DWORD REG_QWORD = 11;

inline constexpr DWORD REG_CREATED_NEW_KEY = 1;
inline constexpr DWORD REG_OPENED_EXISTING_KEY = 2;

struct SECURITY_ATTRIBUTES;

extern "C"
{
    // Missing: 2. Both views at once: 87.
    LONG RegOpenKeyExW(HKEY key, const WCHAR* path, DWORD options, DWORD access, HKEY* opened);
    // Makes all missing levels. The class, the options and the attributes have no effect.
    LONG RegCreateKeyExW(HKEY key, const WCHAR* path, DWORD reserved, const WCHAR* className,
                         DWORD options, DWORD access, const SECURITY_ATTRIBUTES* attributes,
                         HKEY* opened, DWORD* disposition);
    LONG RegCloseKey(HKEY key);

    // Sub-keys and values by index, in the order of their folded names. nameSize is in units and
    // counts the terminator going in, not coming out. End: 259. Too small: 234, nothing written.
    // The time, if asked for, is that of the last change to the sub-key itself.
    LONG RegEnumKeyExW(HKEY key, DWORD index, WCHAR* name, DWORD* nameSize, DWORD* reserved,
                       WCHAR* className, DWORD* classSize, FILETIME* time);
    // Type, data and dataSize may be null, data not without dataSize (87). Data that do not fit:
    // 234 with the name, the type and the needed size.
    LONG RegEnumValueW(HKEY key, DWORD index, WCHAR* name, DWORD* nameSize, DWORD* reserved,
                       DWORD* type, void* data, DWORD* dataSize);

    // A null name is the default value. The bytes come back as they were stored: no terminator is
    // added. Missing: 2. Null data asks for size and type. Too small: 234 with size and type.
    LONG RegQueryValueExW(HKEY key, const WCHAR* name, DWORD* reserved, DWORD* type, void* data,
                          DWORD* dataSize);
    // A name of more than 16,383 units: 87.
    LONG RegSetValueExW(HKEY key, const WCHAR* name, DWORD reserved, DWORD type, const void* data,
                        DWORD size);
    LONG RegDeleteValueW(HKEY key, const WCHAR* name);

    // Deletes one key with its values. Missing: 2. With sub-keys: 5. Null name: 87. The empty name
    // is the key itself; a predefined one stays: 5.
    LONG RegDeleteKeyExW(HKEY key, const WCHAR* path, DWORD view, DWORD reserved);
    LONG RegDeleteKeyW(HKEY key, const WCHAR* path);
    // The path is in the locale's charset.
    LONG RegDeleteKeyA(HKEY key, const char* path);
}

// Closes the stores of this process. Only when this layer is being unloaded, with nobody inside.
void CloseRegistryStores();

} // namespace qv::platform
