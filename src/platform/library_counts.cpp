#include "platform/library_counts.h"

#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

namespace qv::platform
{

namespace
{

// Entries are pushed and never taken out, so that no lock is needed that a fork could leave held.
// An entry whose count is 0 serves the next library at the same address; two entries for one handle
// (two threads pushed at once) add up.
struct Entry
{
    Entry* next;
    void* handle;
    std::atomic<long> count;
};

constinit std::atomic<Entry*> g_first{nullptr};

Entry* Find(Entry* entry, const void* handle)
{
    while (entry != nullptr && entry->handle != handle) {
        entry = entry->next;
    }
    return entry;
}

Entry* First()
{
    return g_first.load(std::memory_order_acquire);
}

} // namespace

bool CountLibrary(void* handle)
{
    if (Entry* const known = Find(First(), handle)) {
        ++known->count;
        return true;
    }
    void* const memory = std::malloc(sizeof(Entry));
    if (memory == nullptr) {
        return false;
    }
    Entry* const entry = new (memory) Entry{First(), handle, 1};
    while (!g_first.compare_exchange_weak(entry->next, entry)) {
    }
    return true;
}

bool UncountLibrary(void* handle)
{
    for (Entry* entry = Find(First(), handle); entry != nullptr;
         entry = Find(entry->next, handle)) {
        long count = entry->count.load();
        while (count > 0) {
            if (entry->count.compare_exchange_weak(count, count - 1)) {
                return true;
            }
        }
    }
    return false;
}

bool IsLibraryOpen(void* handle)
{
    for (const Entry* entry = Find(First(), handle); entry != nullptr;
         entry = Find(entry->next, handle)) {
        if (entry->count.load() > 0) {
            return true;
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
