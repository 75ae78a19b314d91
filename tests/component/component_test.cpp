#include "component/component_test.h"

#include <qvcore6/module.h>
#include <qvcore6/registry.h>

#include <mutex>
#include <string_view>
#include <utility>

#include "frame/facts.h"
#include "platform/error.h"
#include "platform/loader.h"

using namespace qv;
using namespace qv::test;

std::atomic<int> qv::test::g_liveCount{0};
constinit Calls qv::test::g_calls; // the first calls come before this file is initialised
Hook& qv::test::g_hook = *new Hook{"", Kind::None, nullptr}; // libraries may unload at the exit

namespace
{

std::mutex g_mutex;
Journal& g_journal = *new Journal;

// Sets the error of a call that is to fail.
bool Fails(platform::DWORD error)
{
    if (error != 0) {
        platform::SetLastError(error);
    }
    return error != 0;
}

} // namespace

extern "C"
{
    [[gnu::visibility("default")]] void TestJournal(const char* event, Kind kind)
    {
        std::string name = event;
        g_liveCount += name == "load" || name == "make" ? 1 : 0;
        g_liveCount -= name == "unload" || name == "end" ? 1 : 0;
        if (g_calls.keepsJournal) {
            const std::lock_guard<std::mutex> lock(g_mutex);
            g_journal.push_back(
                kind == Kind::None ? name : name + " " + std::to_string(static_cast<int>(kind)));
        }
    }

    [[gnu::visibility("default")]] void TestHook(const char* place, Kind kind)
    {
        if (g_hook.run && g_hook.place == place && g_hook.kind == kind) {
            std::exchange(g_hook.run, nullptr)();
        }
    }

    decltype(QVRegistryGetValue) __real_QVRegistryGetValue;
    QVRESULT __wrap_QVRegistryGetValue(uint32_t root, const QVWChar* key, const QVWChar* name,
                                       uint32_t* type, void* data, uint32_t* size)
    {
        ++g_calls.registryReads;
        return g_calls.registryAnswer != nullptr
                   ? g_calls.registryAnswer(data, size)
                   : __real_QVRegistryGetValue(root, key, name, type, data, size);
    }

    platform::HMODULE __real_LoadLibraryW(const platform::WCHAR* path);
    platform::HMODULE __wrap_LoadLibraryW(const platform::WCHAR* path)
    {
        QVWChar* const kept = g_calls.loadedPath;
        kept[std::u16string_view(path).copy(kept, std::size(g_calls.loadedPath) - 1)] = 0;
        return Fails(g_calls.loadError) ? nullptr : __real_LoadLibraryW(path);
    }

    platform::BOOL __real_FreeLibrary(platform::HMODULE module);
    platform::BOOL __wrap_FreeLibrary(platform::HMODULE module)
    {
        return Fails(g_calls.freeError) ? platform::kFalse : __real_FreeLibrary(module);
    }

    platform::FARPROC __real_GetProcAddress(platform::HMODULE module, const char* name);
    platform::FARPROC __wrap_GetProcAddress(platform::HMODULE module, const char* name)
    {
        return Fails(g_calls.symbolError) ? nullptr : __real_GetProcAddress(module, name);
    }
}

namespace qv::test
{

Journal TakeJournal()
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    return std::exchange(g_journal, {});
}

std::u16string LibraryPath(const char* name)
{
    const std::string path = std::string(QV_TEST_LIBRARIES) + "/" + name + ".so";
    return std::u16string(path.begin(), path.end());
}

QVRESULT SetClassValue(const std::u16string& key, const std::u16string& text)
{
    return QVRegistrySetValue(QV_HKEY_CLASSES, key.c_str(), u"", QV_REGTYPE_STRING, text.c_str(),
                              static_cast<uint32_t>((text.size() + 1) * sizeof(QVWChar)));
}

QVRESULT Register(Kind kind, const std::u16string& path)
{
    const GUID clsid = ClassOf(kind);
    QVWChar text[QV_GUID_TEXT_UNITS];
    QVComStringFromGUID(&clsid, text, QV_GUID_TEXT_UNITS);
    return SetClassValue(u"CLSID\\" + std::u16string(text) + u"\\InprocServer32", path);
}

QVRESULT Ask(Kind kind, const GUID& iid)
{
    const GUID clsid = ClassOf(kind);
    void* object = &object;
    const QVRESULT result = QVComGetClassObject(&clsid, &iid, &object);
    EXPECT_EQ(object == nullptr, result < 0);
    if (result >= 0 && object != nullptr) {
        IQVUnknown_Release(static_cast<IQVUnknown*>(object));
    }
    return result;
}

void ComponentTest::SetUp()
{
    for (int kind = 0; kind < static_cast<int>(Kind::None); ++kind) {
        ASSERT_EQ(Register(static_cast<Kind>(kind), LibraryPath("lib_component")), S_OK);
    }
    TakeJournal();
    m_liveCount = g_liveCount;
}

void ComponentTest::TearDown()
{
    g_calls = {};
    g_hook.run = nullptr;
    EXPECT_EQ(QVModuleSetInitialized(core::s_selfModule, 1), S_OK);
    EXPECT_EQ(QVComFlushFactoryCache(), S_OK);
    EXPECT_EQ(g_liveCount, m_liveCount) << "a class object lives, or a library is open";
}

} // namespace qv::test
