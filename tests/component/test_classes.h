// The classes of the test component, by what they do when they are asked for.
#pragma once

#include <qvcore6/component.h>

namespace qv::test
{

enum class Kind : uint8_t
{
    Plain,  // does everything right
    Other,  // so does this one
    Fails,  // DllGetClassObject answers kForeignFailure
    Throws, // DllGetClassObject throws a type of its own
    Null,   // DllGetClassObject succeeds without an interface
    None,   // no class: the routines of a library
};

inline constexpr QVRESULT kForeignFailure = static_cast<QVRESULT>(0x80041234);
inline constexpr QVRESULT kNoInterface = static_cast<QVRESULT>(0x80004002);

inline GUID ClassOf(Kind kind)
{
    return {0x7E57C0DE, 0x0001, 0x0002, {0, 0, 0, 0, 0, 0, 0, static_cast<uint8_t>(kind)}};
}

} // namespace qv::test

// The test program defines these, and the components call them.
extern "C"
{
    // One thing that happened: "load", "unload", "make", "end", "query", ...
    void TestJournal(const char* event, qv::test::Kind kind);
    // A place where the test may do something: "load", "unload", "get", "query", "release".
    void TestHook(const char* place, qv::test::Kind kind);
}
