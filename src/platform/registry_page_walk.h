// A walk over all pages that a store has in use.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/registry_pages.h"

namespace qv::platform
{

// Reads from the file, not from LMDB's map: what cannot be read is an error there, not a signal.
class PageWalk
{
public:
    // The head in force, which must stay so while the walk goes on.
    PageWalk(int file, off_t fileSize, std::size_t pageSize, const FileHead& head);

    // 0, MDB_CORRUPTED, or the system's error.
    int Run();

private:
    enum class Tree
    {
        kFreePages,
        kRecords,
    };

    // Keys of a sub-tree: not below from and below to. Null: no limit.
    struct Range
    {
        std::string_view from;
        std::string_view to;
    };

    struct Page
    {
        const unsigned char* bytes;
        std::size_t count;
        bool isLeaf;

        const unsigned char* Node(std::size_t i) const;
        std::string_view Key(std::size_t i) const;
    };

    int WalkTree(Tree tree, const TreeHead& head);
    int WalkPage(Tree tree, PageNumber number, unsigned levels, Range range);
    int WalkChildren(Tree tree, const Page& page, unsigned levels, Range range);
    int CheckData(Tree tree, const unsigned char* node);
    int CheckFreeList(const unsigned char* list, std::size_t size);

    bool Tiles(const unsigned char* page, const PageHead& head, bool isLeaf);
    bool IsTransaction(std::string_view key) const;
    bool IsInOrder(Tree tree, const Page& page, Range range) const;
    bool Claim(PageNumber first, std::size_t pages);
    int Read(PageNumber page, std::size_t skip, void* bytes, std::size_t size) const;

    const int m_file;
    const std::size_t m_filePages;
    const std::size_t m_pageSize;
    const FileHead& m_head;
    std::vector<bool> m_claimed;          // by one user each
    std::vector<unsigned char> m_levels;  // the pages from the root down to where the walk is
    std::vector<std::uint16_t> m_nodes;   // size of the node at each second byte of a page
    std::vector<unsigned char> m_outside; // a list of free pages that needs pages of its own
};

} // namespace qv::platform
