#include "platform/registry_path_cache.h"

#include <sys/mman.h>

#include <cstring>

namespace qv::platform
{

namespace
{

constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15;

std::uint64_t Mix(std::uint64_t hash, std::uint64_t word)
{
    hash = (hash ^ word) * kFactor;
    return hash ^ hash >> 32;
}

} // namespace

// Fresh pages are zeros, which is an empty cache, and cost nothing until they are used.
PathCache* PathCache::Make()
{
    void* const memory = mmap(nullptr, sizeof(PathCache), PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        return nullptr;
    }
    madvise(memory, sizeof(PathCache), MADV_DONTFORK);
    return static_cast<PathCache*>(memory);
}

void PathCache::Free(PathCache* cache)
{
    if (cache != nullptr) {
        munmap(static_cast<void*>(cache), sizeof(PathCache));
    }
}

std::size_t PathCache::Slot(Node base, std::u16string_view path)
{
    constexpr std::size_t kStep = sizeof(std::uint64_t) / sizeof(WCHAR);
    std::uint64_t hash = Mix(path.size(), base);
    std::size_t at = 0;
    std::uint64_t word = 0;
    for (; at + kStep <= path.size(); at += kStep) {
        std::memcpy(&word, path.data() + at, sizeof word);
        hash = Mix(hash, word);
    }
    word = 0;
    std::memcpy(&word, path.data() + at, (path.size() - at) * sizeof(WCHAR));
    return static_cast<std::size_t>(Mix(hash, word)) % kEntries;
}

bool PathCache::Find(Node base, std::u16string_view path, std::uint64_t deletions, Node* node) const
{
    if (path.size() > kMaxPath) {
        return false;
    }
    const Entry& entry = m_entries[Slot(base, path)];
    if (entry.base != base || entry.deletions != deletions || entry.length != path.size() ||
        std::memcmp(entry.path, path.data(), path.size() * sizeof(WCHAR)) != 0) {
        return false;
    }
    *node = entry.node;
    return true;
}

void PathCache::Insert(Node base, std::u16string_view path, std::uint64_t deletions, Node node)
{
    if (path.size() > kMaxPath) {
        return;
    }
    Entry& entry = m_entries[Slot(base, path)];
    entry.base = base;
    entry.node = node;
    entry.deletions = deletions;
    entry.length = static_cast<std::uint32_t>(path.size());
    std::memcpy(entry.path, path.data(), path.size() * sizeof(WCHAR));
}

} // namespace qv::platform
