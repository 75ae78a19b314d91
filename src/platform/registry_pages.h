// LMDB's file, data version 1, as far as the check of a store reads it.
//
// Pages 0 and 1 are heads; the one with the higher transaction number is in force. It has two
// trees: one of pages in no use, by the transaction that freed them, and one of the records. Pages
// of a tree hold 16-bit offsets of nodes behind their head and the nodes from their end downward.
// Data too large for a node lie in pages of their own, in a row. All numbers have the machine's
// byte order, and page numbers the machine's width. Source: mdb.c of LMDB 0.9, MDB_page, MDB_node,
// MDB_db and MDB_meta.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qv::platform
{

using PageNumber = std::size_t;

inline constexpr PageNumber kHeadPages = 2;
inline constexpr PageNumber kNoPage = static_cast<PageNumber>(-1); // the root of an empty tree
inline constexpr std::uint32_t kFileMagic = 0xBEEFC0DE;
inline constexpr std::uint32_t kFileVersion = 1;
inline constexpr std::size_t kMinPageSize = 512;
inline constexpr std::size_t kMaxPageSize = 0x8000;
inline constexpr unsigned kMaxDepth = 32; // of LMDB's cursors
inline constexpr std::size_t kMaxFileKey = 511;

enum class PageKind : std::uint16_t
{
    kBranch = 0x01,
    kLeaf = 0x02,
    kOverflow = 0x04,
    kHead = 0x08,
};

struct PageHead
{
    PageNumber number;
    std::uint16_t unused;
    PageKind kind;
    std::uint16_t lower; // end of the offsets
    std::uint16_t upper; // begin of the nodes

    // Of overflow pages, which have this in the place of the two.
    std::uint32_t Pages() const;
};

struct NodeHead
{
    std::uint32_t size; // of the data, or the low half of a branch's page number
    std::uint16_t flags;
    std::uint16_t keySize;

    PageNumber Child() const;
};

inline constexpr std::uint16_t kDataOutside = 0x01; // a node's data are the number of their page

struct TreeHead
{
    std::uint32_t pageSize; // only in the first tree
    std::uint16_t flags;
    std::uint16_t depth;
    std::size_t branchPages;
    std::size_t leafPages;
    std::size_t overflowPages;
    std::size_t entries;
    PageNumber root;
};

struct FileHead
{
    PageHead page;
    std::uint32_t magic;
    std::uint32_t version;
    std::size_t address;
    std::size_t mapSize;
    TreeHead freePages;
    TreeHead records;
    PageNumber lastPage;
    std::size_t transaction;
};

// No padding anywhere, in programs of either width.
static_assert(sizeof(PageHead) == sizeof(PageNumber) + 8 && sizeof(NodeHead) == 8);
static_assert(sizeof(TreeHead) == 8 + 5 * sizeof(std::size_t));
static_assert(sizeof(FileHead) ==
              sizeof(PageHead) + 8 + 2 * sizeof(TreeHead) + 4 * sizeof(std::size_t));

} // namespace qv::platform
