#include "empty_calls.h"

struct EmptyObject
{
    virtual int Acquire() = 0;
    virtual int Release() = 0;

protected:
    ~EmptyObject() = default;
};

namespace
{

struct First final : EmptyObject
{
    int Acquire() override { return 0; }
    int Release() override { return 0; }
};

First g_first;

} // namespace

EmptyObject* MakeEmptyObject()
{
    return &g_first;
}

int EmptyExportedAcquire(EmptyObject* object)
{
    return object->Acquire();
}

int EmptyExportedRelease(EmptyObject* object)
{
    return object->Release();
}
