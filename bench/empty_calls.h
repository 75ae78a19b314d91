// A library of its own whose calls do nothing but what every call of an object through an export
// does: the jump into the library and the virtual call.
#pragma once

struct EmptyObject;

extern "C"
{
    [[gnu::visibility("default")]] EmptyObject* MakeEmptyObject();
    [[gnu::visibility("default")]] int EmptyExportedAcquire(EmptyObject* object);
    [[gnu::visibility("default")]] int EmptyExportedRelease(EmptyObject* object);
}
