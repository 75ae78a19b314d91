#include "platform/library_counts.h"

#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

namespace qv::platform
{

namespace
{

// One entry for each open, pushed and never taken out; a null handle makes it free for the next
// one. So no lock is needed that a fork could leave held.
struct Entry
{
    Entry* next;
    std::atomic<void*> handle;
};

constinit std::atomic<Entry*> g_first{nullptr};

// Makes the first entry with the one value hold the other. False if there is none.
bool Replace(void* from, void* to)
{
    for (Entry* entry = g_first.load(); entry != nullptr; entry = entry->next) {
        void* expected = from;
        if (entry->handle.compare_exchange_strong(expected, to)) {
            return true;
        }
    }
    return false;
}

} // namespace

bool CountLibrary(void* handle)
{
    if (Replace(nullptr, handle)) {
        return true;
    }
    void* const memory = std::malloc(sizeof(Entry));
    if (memory == nullptr) {
        return false;
    }
    Entry* const entry = new (memory) Entry{g_first.load(), handle};
    while (!g_first.compare_exchange_weak(entry->next, entry)) {
    }
    return true;
}

bool UncountLibrary(void* handle)
{
    return handle != nullptr && Replace(handle, nullptr);
}

bool IsLibraryOpen(void* handle)
{
    for (const Entry* entry = g_first.load(); entry != nullptr; entry = entry->next) {
        if (entry->handle.load() == handle) {
            return handle != nullptr;
        }
    }
    return false;
}

void ForgetLibraryCounts()
{
    Entry* entry = g_first.exchange(nullptr);
    while (entry != nullptr) {
        std::free(std::exchange(entry, entry->next));
    }
}

} // namespace qv::platform
