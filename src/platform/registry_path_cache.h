// Remembers where paths led.
//
// A path leads to the same node until a key is deleted, whatever else changes: nodes are never used
// twice. So an entry holds for the number of deletions at which it was made. Paths that led nowhere
// are not remembered. Not for two threads at once.
#pragma once

#include <string_view>

#include "platform/registry_records.h"
#include "platform/types.h"

namespace qv::platform
{

class PathCache
{
public:
    // Null without memory; everything works without a cache. A forked child does not inherit it.
    static PathCache* Make();
    static void Free(PathCache* cache);

    PathCache(const PathCache&) = delete;
    PathCache& operator=(const PathCache&) = delete;

    // The path is compared exactly: other letter cases are other entries.
    bool Find(Node base, std::u16string_view path, std::uint64_t deletions, Node* node) const;
    void Insert(Node base, std::u16string_view path, std::uint64_t deletions, Node node);

private:
    static constexpr std::size_t kEntries = 1024;
    static constexpr std::size_t kMaxPath = 110;

    struct Entry
    {
        Node base; // 0: none
        Node node;
        std::uint64_t deletions;
        std::uint32_t length;
        WCHAR path[kMaxPath];
    };
    static_assert(sizeof(Entry) <= 256);

    PathCache() = default;
    static std::size_t Slot(Node base, std::u16string_view path);

    Entry m_entries[kEntries];
};

} // namespace qv::platform
