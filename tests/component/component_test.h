// What the tests of components share: the journal of the test component, the replaced platform and
// registry calls, and a fixture that puts all back and looks for what is left.
#pragma once

#include <gtest/gtest.h>
#include <qvcore6/component.h>
#include <qvcore6/result.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "component/test_classes.h"
#include "platform/types.h"

namespace qv::test
{

// What the replaced calls do.
struct Calls
{
    platform::DWORD loadError = 0; // 0: none
    platform::DWORD freeError = 0;
    platform::DWORD symbolError = 0;
    QVRESULT (*registryAnswer)(void* data, uint32_t* size) = nullptr; // instead of the real one
    int registryReads = 0;
    QVWChar loadedPath[300] = {}; // of the last load
    bool keepsJournal = true;     // which allocates
};
extern Calls g_calls;

// What happens the next time that a class reaches a place, once.
struct Hook
{
    std::string place;
    Kind kind;
    std::function<void()> run;
};
extern Hook& g_hook;

// The events since the last call: "load", "make 0", ...
using Journal = std::vector<std::string>;
Journal TakeJournal();

std::u16string LibraryPath(const char* name);
// Sets the default value of a key of classes.
QVRESULT SetClassValue(const std::u16string& key, const std::u16string& text);
QVRESULT Register(Kind kind, const std::u16string& path);

// Asks for a class object and gives it back.
QVRESULT Ask(Kind kind, const GUID& iid = QV_IID_UNKNOWN);

// Class objects that live plus test components that are loaded.
extern std::atomic<int> g_liveCount;

class ComponentTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

private:
    int m_liveCount = 0;
};

} // namespace qv::test
