// Links a component, whose entry point must not pass for one of its own.
#include "component/test_classes.h"

extern "C"
{
    QV_EXPORT int TestNumber = 42;
}

[[gnu::constructor]] static void OnLoad()
{
    TestHook("load", qv::test::Kind::None);
}

[[gnu::destructor]] static void OnUnload()
{
    TestHook("unload", qv::test::Kind::None);
}
