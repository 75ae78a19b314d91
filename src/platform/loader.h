// Shared libraries, and the system's own modules by name.
#pragma once

#include "platform/types.h"

namespace qv::platform
{

struct Module;
using HMODULE = Module*;

extern "C"
{
    // Each call that succeeds is undone by one FreeLibrary. '\' and '/' both separate. A bare name
    // goes through the system's search, then the current directory; "x.dll" that is not there
    // stands for "x.so" and "libx.so". Errors: 87 empty name, 126 not found, or its load routine or
    // a dependency failed, 193 no library for this machine, 5 not readable, 14.
    HMODULE LoadLibraryW(const WCHAR* path);
    // The same with bytes, and "kernel32.dll" and "advapi32.dll" in any case: built-in modules that
    // have the functions which not every system has.
    HMODULE LoadLibraryA(const char* path);
    // A built-in module, without a count. Error 126.
    HMODULE GetModuleHandleW(const WCHAR* name);
    // What the module itself exports, not what it links. Errors: 127, 6 for what is not open.
    FARPROC GetProcAddress(HMODULE module, const char* name);
    // Error 126 for what is not open.
    BOOL FreeLibrary(HMODULE module);
}

} // namespace qv::platform
