#include <qvcore6/component.h>
#include <qvcore6/result.h>

#include "frame/facts.h"
#include "platform/com.h"

using qv::core::s_malloc;

// Without an allocator (it could not be had at start) there is no memory, and no block to free.

QVRESULT QVComMalloc(uint32_t size, void** blockOut)
{
    *blockOut = s_malloc != nullptr ? s_malloc->Alloc(size) : nullptr;
    return *blockOut != nullptr ? S_OK : E_OUTOFMEMORY;
}

QVRESULT QVComRealloc(void** block, uint32_t size)
{
    if (s_malloc == nullptr) {
        return E_OUTOFMEMORY;
    }
    void* const resized = s_malloc->Realloc(*block, size);
    if (resized == nullptr && size != 0) {
        return E_OUTOFMEMORY;
    }
    *block = resized;
    return S_OK;
}

QVRESULT QVComFree(void* block)
{
    if (s_malloc != nullptr) {
        s_malloc->Free(block);
    }
    return S_OK;
}
