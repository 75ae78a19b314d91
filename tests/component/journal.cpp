#include "component/journal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <utility>

namespace
{

std::mutex g_mutex;
std::vector<std::string> g_journal;
void (*g_wait)() = nullptr;
bool g_keep = true;
bool g_ended = false; // the program's own statics may be gone when libraries are unloaded at exit

struct AtEnd
{
    ~AtEnd() { g_ended = true; }
} g_atEnd;

} // namespace

extern "C"
{
    [[gnu::visibility("default")]] void TestJournal(const char* event, int kind)
    {
        if (g_ended || !g_keep) {
            return;
        }
        const std::lock_guard<std::mutex> lock(g_mutex);
        g_journal.push_back(kind < 0 ? event : qv::test::Event(event, kind));
    }

    [[gnu::visibility("default")]] void TestWait()
    {
        if (g_wait != nullptr) {
            g_wait();
        }
    }
}

namespace qv::test
{

void KeepJournal(bool keep)
{
    g_keep = keep;
}

std::vector<std::string> TakeJournal()
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    return std::exchange(g_journal, {});
}

std::string Event(std::string name, int kind)
{
    name += ' ';
    name += std::to_string(kind);
    return name;
}

long CountIn(const std::vector<std::string>& journal, const std::string& event)
{
    return std::count(journal.begin(), journal.end(), event);
}

QVRESULT Register(const GUID& clsid, const std::u16string& path)
{
    QVWChar text[QV_GUID_TEXT_UNITS];
    QVComStringFromGUID(&clsid, text, QV_GUID_TEXT_UNITS);
    const std::u16string key = u"CLSID\\" + std::u16string(text) + u"\\InprocServer32";
    return QVRegistrySetValue(QV_HKEY_CLASSES, key.c_str(), u"", QV_REGTYPE_STRING, path.c_str(),
                              static_cast<uint32_t>((path.size() + 1) * sizeof(QVWChar)));
}

void RegisterAllKinds()
{
    for (int kind = 0; kind <= static_cast<int>(Kind::Waits); ++kind) {
        ASSERT_EQ(Register(ClassOf(static_cast<Kind>(kind)), LibraryPath("lib_component")), S_OK);
    }
}

std::u16string LibraryPath(const char* name)
{
    const std::string path = std::string(QV_TEST_LIBRARIES) + "/" + name + ".so";
    return std::u16string(path.begin(), path.end());
}

void SetWait(void (*wait)())
{
    g_wait = wait;
}

} // namespace qv::test
