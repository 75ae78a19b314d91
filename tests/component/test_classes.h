// The classes of the test component, by what they do when they are asked for.
#pragma once

#include <qvcore6/component.h>

namespace qv::test
{

enum class Kind : uint8_t
{
    Plain,          // does everything right
    Fails,          // DllGetClassObject answers kForeignFailure
    Throws,         // DllGetClassObject throws a type of its own
    ThrowsBadAlloc, // DllGetClassObject throws std::bad_alloc
    Null,           // DllGetClassObject succeeds without an interface
    AsksForPlain,   // DllGetClassObject looks up Plain
    AsksForItself,  // DllGetClassObject looks up its own class, once
    Flushes,        // QueryInterface flushes the cache
    ReleaseAsks,    // Release looks up Plain
    QueryThrows,    // QueryInterface throws a type of its own
    CreateFails,    // CreateInstance answers kForeignFailure
    CreateThrows,   // CreateInstance throws a type of its own
    Waits,          // DllGetClassObject waits until TestMayGoOn says so
};

inline constexpr QVRESULT kForeignFailure = static_cast<QVRESULT>(0x80041234);
inline constexpr QVRESULT kNoInterface = static_cast<QVRESULT>(0x80004002);

inline GUID ClassOf(Kind kind)
{
    return {0x7E57C0DE, 0x0001, 0x0002, {0, 0, 0, 0, 0, 0, 0, static_cast<uint8_t>(kind)}};
}

} // namespace qv::test

// The test program defines these, and the component calls them.
extern "C"
{
    // One thing that happened: "load", "unload", "get 3", "addref 3", "release 3", ...
    void TestJournal(const char* event, int kind);
    // Called by Kind::Waits inside DllGetClassObject.
    void TestWait();
}
