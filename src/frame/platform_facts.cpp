#include "frame/platform_facts.h"

#include <memory>
#include <type_traits>

#include "frame/facts.h"
#include "platform/host_info.h"
#include "platform/loader.h"
#include "platform/registry_store.h"
#include "platform/system_time.h"
#include "text/ansi_string.h"

namespace qv::core
{

namespace
{

// For systems whose way to delete a key takes no view.
platform::LONG DeleteKeyWithoutView(platform::HKEY key, const char16_t* name,
                                    platform::DWORD /*view*/, platform::DWORD /*reserved*/)
{
    return platform::RegDeleteKeyW(key, name);
}

// For systems whose registry has narrow names alone.
platform::LONG DeleteNarrowKey(platform::HKEY key, const char16_t* name, platform::DWORD /*view*/,
                               platform::DWORD /*reserved*/)
{
    try {
        return platform::RegDeleteKeyA(key, QVWStringToAnsi(name).c_str());
    } catch (const std::bad_alloc&) {
        return static_cast<platform::LONG>(platform::ERROR_OUTOFMEMORY);
    }
}

void TakeVersion()
{
    platform::OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
    platform::GetVersionExW(&version);
    s_isNT = version.dwPlatformId == platform::VER_PLATFORM_WIN32_NT ? 1 : 0;
    platform::BOOL isWow64 = platform::kFalse;
    if (s_isNT != 0) {
        platform::IsWow64Process(platform::GetCurrentProcess(), &isWow64);
    }
    s_isWow64 = static_cast<std::int16_t>(isWow64);
}

// A system library held for the length of some look-ups. What was found stays valid after it.
class SystemLibrary
{
public:
    explicit SystemLibrary(const char* name) : m_module(platform::LoadLibraryA(name)) {}
    ~SystemLibrary()
    {
        if (m_module != nullptr) {
            platform::FreeLibrary(m_module);
        }
    }
    SystemLibrary(const SystemLibrary&) = delete;
    SystemLibrary& operator=(const SystemLibrary&) = delete;

    // The function of that name, or null.
    template <class Function> Function Find(const char* name) const
    {
        return m_module == nullptr
                   ? nullptr
                   : reinterpret_cast<Function>(platform::GetProcAddress(m_module, name));
    }

private:
    platform::HMODULE m_module;
};

void FindEntryPoints()
{
    if (s_isNT == 0) {
        s_regDeleteKeyEx = &DeleteNarrowKey;
        s_getPreciseTime = nullptr;
        return;
    }
    {
        const SystemLibrary kernel("kernel32.dll");
        s_getPreciseTime = kernel.Find<GetTimeFunction>("GetSystemTimePreciseAsFileTime");
        if (s_getPreciseTime == nullptr) {
            s_getPreciseTime = &platform::GetSystemTimeAsFileTime;
        }
    }
    const SystemLibrary advapi("advapi32.dll");
    s_regDeleteKeyEx = advapi.Find<RegDeleteKeyExFunction>("RegDeleteKeyExW");
    if (s_regDeleteKeyEx == nullptr) {
        s_regDeleteKeyEx = &DeleteKeyWithoutView;
    }
}

} // namespace

void TakePlatformFacts()
{
    TakeVersion();
    FindEntryPoints();
}

} // namespace qv::core
