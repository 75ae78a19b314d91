#include "platform/loader.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "platform/diagnostics.h"
#include "platform/error.h"
#include "platform/library_counts.h"
#include "platform/path_text.h"
#include "platform/registry_store.h"
#include "platform/system_time.h"

namespace qv::platform
{

// A built-in module has an identity and nothing else.
struct Module
{
    const char* name;
};

namespace
{

constinit Module g_kernel = {"kernel32.dll"};
constinit Module g_registry = {"advapi32.dll"};

bool IsBuiltIn(const Module* module)
{
    return module == &g_kernel || module == &g_registry;
}

Module* BuiltIn(std::string_view name)
{
    for (Module* module : {&g_kernel, &g_registry}) {
        if (name == module->name) {
            return module;
        }
    }
    return nullptr;
}

FARPROC BuiltInFunction(const Module* module, std::string_view name)
{
    const struct
    {
        const Module* module;
        std::string_view name;
        FARPROC address;
    } rows[] = {
        {&g_kernel, "GetSystemTimePreciseAsFileTime",
         reinterpret_cast<FARPROC>(&GetSystemTimePreciseAsFileTime)},
        {&g_kernel, "GetSystemTimeAsFileTime", reinterpret_cast<FARPROC>(&GetSystemTimeAsFileTime)},
        {&g_kernel, "WTSGetActiveConsoleSessionId",
         reinterpret_cast<FARPROC>(&WTSGetActiveConsoleSessionId)},
        {&g_registry, "RegDeleteKeyExW", reinterpret_cast<FARPROC>(&RegDeleteKeyExW)},
    };
    for (const auto& row : rows) {
        if (row.module == module && row.name == name) {
            return row.address;
        }
    }
    return nullptr;
}

std::string InLowerCase(std::string_view text)
{
    std::string lower(text);
    for (char& byte : lower) {
        if (byte >= 'A' && byte <= 'Z') {
            byte = static_cast<char>(byte - 'A' + 'a');
        }
    }
    return lower;
}

// 0 if the file may be handed to the loader. Looked at first, because the loader tells the reason
// for a refusal only in words, and waits for ever on a pipe.
DWORD CheckFile(const std::string& path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) {
        return errno == ENOENT || errno == ENOTDIR ? ERROR_MOD_NOT_FOUND : ErrorFromErrno(errno);
    }
    struct stat facts = {};
    ElfW(Ehdr) head = {};
    const bool isLibrary = fstat(file, &facts) == 0 && S_ISREG(facts.st_mode) &&
                           read(file, &head, sizeof head) == static_cast<ssize_t>(sizeof head) &&
                           std::memcmp(head.e_ident, ELFMAG, SELFMAG) == 0 &&
                           head.e_ident[EI_CLASS] == (sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32);
    close(file);
    return isLibrary ? ERROR_SUCCESS : ERROR_BAD_EXE_FORMAT;
}

struct Opened
{
    void* handle;
    DWORD error;
};

// RTLD_NOW: a symbol that nobody has must fail here and not end the process later.
Opened OpenFile(const std::string& path)
{
    if (const DWORD error = CheckFile(path)) {
        return {nullptr, error};
    }
    void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    return {handle, handle != nullptr ? ERROR_SUCCESS : ERROR_MOD_NOT_FOUND};
}

Opened OpenName(const std::string& name)
{
    if (name.find('/') != std::string::npos) {
        return OpenFile(name);
    }
    if (void* const found = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        return {found, ERROR_SUCCESS};
    }
    return OpenFile("./" + name);
}

// What "dir/x.dll" is also called here, in the order of trial.
std::array<std::string, 2> OtherNames(const std::string& path)
{
    constexpr std::string_view ending = ".dll";
    if (path.size() <= ending.size() ||
        InLowerCase(path.substr(path.size() - ending.size())) != ending) {
        return {};
    }
    const std::string plain = path.substr(0, path.size() - ending.size()) + ".so";
    std::string prefixed = plain;
    const std::size_t slash = plain.rfind('/');
    prefixed.insert(slash == std::string::npos ? 0 : slash + 1, "lib");
    return {plain, prefixed};
}

Opened OpenAnyName(const std::string& path)
{
    Opened opened = OpenName(path);
    for (const std::string& other : OtherNames(path)) {
        if (opened.error != ERROR_MOD_NOT_FOUND || other.empty()) {
            break;
        }
        opened = OpenName(other);
    }
    return opened;
}

HMODULE Load(std::string path)
{
    if (path.empty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    std::replace(path.begin(), path.end(), '\\', '/');
    const Opened opened = OpenAnyName(path);
    if (opened.handle == nullptr) {
        SetLastError(opened.error);
        return nullptr;
    }
    if (!CountLibrary(opened.handle)) {
        dlclose(opened.handle);
        SetLastError(ERROR_OUTOFMEMORY);
        return nullptr;
    }
    return static_cast<HMODULE>(opened.handle);
}

// Runs the body; exhausted memory is an error number like others.
template <class Body> HMODULE WithMemory(Body body)
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_OUTOFMEMORY);
        return nullptr;
    }
}

// The loader looks through the library's dependencies too; only what lies in itself counts.
bool LiesIn(void* address, const void* handle)
{
    Dl_info facts = {};
    void* map = nullptr;
    return dladdr1(address, &facts, &map, RTLD_DL_LINKMAP) != 0 && map == handle;
}

FARPROC Fail(DWORD error)
{
    SetLastError(error);
    return nullptr;
}

} // namespace

HMODULE LoadLibraryW(const WCHAR* path)
{
    const KeepErrno keep;
    return WithMemory([&] { return Load(path == nullptr ? "" : PathToBytes(path)); });
}

HMODULE LoadLibraryA(const char* path)
{
    const KeepErrno keep;
    return WithMemory([&] {
        const std::string name = path == nullptr ? "" : path;
        Module* const builtIn = BuiltIn(InLowerCase(name));
        return builtIn != nullptr ? builtIn : Load(name);
    });
}

HMODULE GetModuleHandleW(const WCHAR* name)
{
    const KeepErrno keep;
    return WithMemory([&]() -> HMODULE {
        Module* const builtIn = BuiltIn(InLowerCase(name == nullptr ? "" : PathToBytes(name)));
        if (builtIn == nullptr) {
            SetLastError(ERROR_MOD_NOT_FOUND);
        }
        return builtIn;
    });
}

FARPROC GetProcAddress(HMODULE module, const char* name)
{
    const KeepErrno keep;
    if (!IsBuiltIn(module) && !IsLibraryOpen(module)) {
        return Fail(ERROR_INVALID_HANDLE);
    }
    if (name == nullptr || *name == '\0') {
        return Fail(ERROR_PROC_NOT_FOUND);
    }
    if (IsBuiltIn(module)) {
        const FARPROC function = BuiltInFunction(module, name);
        return function != nullptr ? function : Fail(ERROR_PROC_NOT_FOUND);
    }
    void* const address = dlsym(module, name);
    if (address == nullptr || !LiesIn(address, module)) {
        return Fail(ERROR_PROC_NOT_FOUND);
    }
    return reinterpret_cast<FARPROC>(address);
}

BOOL FreeLibrary(HMODULE module)
{
    const KeepErrno keep;
    if (IsBuiltIn(module)) {
        return kTrue;
    }
    // Uncounted first: its unload routine may come back here.
    if (!UncountLibrary(module) || dlclose(module) != 0) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return kFalse;
    }
    return kTrue;
}

} // namespace qv::platform
