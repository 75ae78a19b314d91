#include "platform/registry_page_walk.h"

#include <lmdb.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace qv::platform
{

namespace
{

constexpr unsigned kDuplicates = MDB_DUPSORT | MDB_DUPFIXED | MDB_INTEGERDUP | MDB_REVERSEDUP;

template <class T> T Load(const unsigned char* bytes)
{
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

template <class T> T Load(std::string_view bytes)
{
    return Load<T>(reinterpret_cast<const unsigned char*>(bytes.data()));
}

} // namespace

std::uint32_t PageHead::Pages() const
{
    std::uint32_t pages;
    std::memcpy(&pages, &lower, sizeof lower);
    std::memcpy(reinterpret_cast<unsigned char*>(&pages) + sizeof lower, &upper, sizeof upper);
    return pages;
}

PageNumber NodeHead::Child() const
{
    const auto number = std::uint64_t{size} | std::uint64_t{flags} << 32;
    return static_cast<PageNumber>(sizeof(PageNumber) > 4 ? number : std::uint64_t{size});
}

const unsigned char* PageWalk::Page::Node(std::size_t i) const
{
    return bytes + Load<std::uint16_t>(bytes + sizeof(PageHead) + i * 2);
}

std::string_view PageWalk::Page::Key(std::size_t i) const
{
    const unsigned char* const node = Node(i);
    return {reinterpret_cast<const char*>(node) + sizeof(NodeHead), Load<NodeHead>(node).keySize};
}

PageWalk::PageWalk(int file, off_t fileSize, std::size_t pageSize, const FileHead& head)
    : m_file(file), m_filePages(static_cast<std::size_t>(fileSize) / pageSize),
      m_pageSize(pageSize), m_head(head), m_nodes(pageSize / 2)
{}

int PageWalk::Run()
{
    m_claimed.assign(m_head.lastPage + 1, false);
    if (!Claim(0, kHeadPages)) {
        return MDB_CORRUPTED;
    }
    const int result = WalkTree(Tree::kFreePages, m_head.freePages);
    return result != 0 ? result : WalkTree(Tree::kRecords, m_head.records);
}

int PageWalk::WalkTree(Tree tree, const TreeHead& head)
{
    const unsigned bad = tree == Tree::kRecords ? ~0U : kDuplicates | MDB_REVERSEKEY;
    if ((head.flags & bad) != 0 || (head.depth == 0) != (head.root == kNoPage) ||
        head.depth > kMaxDepth) {
        return MDB_CORRUPTED;
    }
    if (head.depth == 0) {
        return 0;
    }
    m_levels.resize(head.depth * m_pageSize);
    return WalkPage(tree, head.root, head.depth, {});
}

int PageWalk::WalkPage(Tree tree, PageNumber number, unsigned levels, Range range)
{
    unsigned char* const bytes = m_levels.data() + (levels - 1) * m_pageSize;
    if (!Claim(number, 1)) {
        return MDB_CORRUPTED;
    }
    if (const int result = Read(number, 0, bytes, m_pageSize)) {
        return result;
    }
    const bool isLeaf = levels == 1;
    const auto head = Load<PageHead>(bytes);
    if (head.number != number || head.kind != (isLeaf ? PageKind::kLeaf : PageKind::kBranch) ||
        !Tiles(bytes, head, isLeaf)) {
        return MDB_CORRUPTED;
    }
    const Page page = {bytes, (head.lower - sizeof head) / 2, isLeaf};
    if (page.count < (isLeaf ? 1 : 2) || !IsInOrder(tree, page, range)) {
        return MDB_CORRUPTED;
    }
    if (!isLeaf) {
        return WalkChildren(tree, page, levels, range);
    }
    int result = 0;
    for (std::size_t i = 0; result == 0 && i < page.count; ++i) {
        result = CheckData(tree, page.Node(i));
    }
    return result;
}

int PageWalk::WalkChildren(Tree tree, const Page& page, unsigned levels, Range range)
{
    int result = 0;
    for (std::size_t i = 0; result == 0 && i < page.count; ++i) {
        const Range keys = {i == 0 ? range.from : page.Key(i),
                            i + 1 == page.count ? range.to : page.Key(i + 1)};
        result = WalkPage(tree, Load<NodeHead>(page.Node(i)).Child(), levels - 1, keys);
    }
    return result;
}

int PageWalk::CheckData(Tree tree, const unsigned char* node)
{
    const auto head = Load<NodeHead>(node);
    const unsigned char* data = node + sizeof head + head.keySize;
    if ((head.flags & kDataOutside) != 0) {
        const auto number = Load<PageNumber>(data);
        PageHead outside;
        if (number > m_head.lastPage) {
            return MDB_CORRUPTED;
        }
        if (const int result = Read(number, 0, &outside, sizeof outside)) {
            return result;
        }
        const std::size_t needed =
            (sizeof outside + std::size_t{head.size} + m_pageSize - 1) / m_pageSize;
        if (outside.number != number || outside.kind != PageKind::kOverflow ||
            outside.Pages() < needed || !Claim(number, outside.Pages())) {
            return MDB_CORRUPTED;
        }
        if (tree == Tree::kFreePages) {
            m_outside.resize(head.size);
            if (const int result = Read(number, sizeof outside, m_outside.data(), head.size)) {
                return result;
            }
            data = m_outside.data();
        }
    }
    return tree == Tree::kFreePages ? CheckFreeList(data, head.size) : 0;
}

// Their number, then the pages in descending order.
int PageWalk::CheckFreeList(const unsigned char* list, std::size_t size)
{
    const std::size_t room = size / sizeof(PageNumber);
    const auto count = room == 0 ? 0 : Load<PageNumber>(list);
    if (count >= room) {
        return MDB_CORRUPTED;
    }
    PageNumber previous = kNoPage;
    for (std::size_t i = 1; i <= count; ++i) {
        const auto number = Load<PageNumber>(list + i * sizeof(PageNumber));
        // A page that was taken and given back in one transaction may lie beyond the file's end.
        if (number >= previous || number > m_head.lastPage || m_claimed[number]) {
            return MDB_CORRUPTED;
        }
        m_claimed[number] = true;
        previous = number;
    }
    return 0;
}

// The nodes fill the page from its upper to its end, each named by one offset.
bool PageWalk::Tiles(const unsigned char* page, const PageHead& head, bool isLeaf)
{
    if (head.lower < sizeof head || head.lower % 2 != 0 || head.lower > head.upper ||
        head.upper % 2 != 0 || head.upper > m_pageSize) {
        return false;
    }
    std::fill(m_nodes.begin(), m_nodes.end(), std::uint16_t{0});
    for (std::size_t at = sizeof head; at < head.lower; at += 2) {
        const auto offset = Load<std::uint16_t>(page + at);
        if (offset < head.upper || offset % 2 != 0 || offset + sizeof(NodeHead) > m_pageSize ||
            m_nodes[offset / 2] != 0) {
            return false;
        }
        const auto node = Load<NodeHead>(page + offset);
        std::size_t size = sizeof node + node.keySize;
        if (isLeaf) {
            const bool isOutside = node.flags == kDataOutside;
            if ((node.flags != 0 && !isOutside) || (!isOutside && node.size > m_pageSize)) {
                return false;
            }
            size += isOutside ? sizeof(PageNumber) : node.size;
        }
        size += size % 2;
        if (node.keySize > kMaxFileKey || offset + size > m_pageSize) {
            return false;
        }
        m_nodes[offset / 2] = static_cast<std::uint16_t>(size);
    }
    std::size_t at = head.upper;
    std::size_t count = 0;
    for (; at < m_pageSize && m_nodes[at / 2] != 0; ++count) {
        at += m_nodes[at / 2];
    }
    return at == m_pageSize && count == (head.lower - sizeof head) / 2;
}

// One that may have freed pages. LMDB would take those of number 0 again and again.
bool PageWalk::IsTransaction(std::string_view key) const
{
    return key.size() == sizeof(std::size_t) && Load<std::size_t>(key) != 0 &&
           Load<std::size_t>(key) <= m_head.transaction;
}

// The first key of a branch is not used: its child has everything below the second.
bool PageWalk::IsInOrder(Tree tree, const Page& page, Range range) const
{
    const auto isBelow = [tree](std::string_view a, std::string_view b) {
        return tree == Tree::kRecords ? a < b : Load<std::size_t>(a) < Load<std::size_t>(b);
    };
    std::string_view previous = range.from;
    for (std::size_t i = page.isLeaf ? 0 : 1; i < page.count; ++i) {
        const std::string_view key = page.Key(i);
        if (tree == Tree::kRecords ? key.empty() : !IsTransaction(key)) {
            return false;
        }
        const bool mayBeEqual = page.isLeaf && i == 0;
        if (previous.data() != nullptr &&
            (mayBeEqual ? isBelow(key, previous) : !isBelow(previous, key))) {
            return false;
        }
        previous = key;
    }
    return range.to.data() == nullptr || previous.data() == nullptr || isBelow(previous, range.to);
}

bool PageWalk::Claim(PageNumber first, std::size_t pages)
{
    if (first >= m_filePages || pages > m_filePages - first || first > m_head.lastPage ||
        pages > m_head.lastPage + 1 - first) {
        return false;
    }
    const auto begin = m_claimed.begin() + static_cast<std::ptrdiff_t>(first);
    const auto end = begin + static_cast<std::ptrdiff_t>(pages);
    if (std::find(begin, end, true) != end) {
        return false;
    }
    std::fill(begin, end, true);
    return true;
}

int PageWalk::Read(PageNumber page, std::size_t skip, void* bytes, std::size_t size) const
{
    auto at = static_cast<off_t>(page * m_pageSize + skip);
    auto* to = static_cast<unsigned char*>(bytes);
    while (size > 0) {
        const ssize_t got = pread(m_file, to, size, at);
        if (got == 0) {
            return MDB_CORRUPTED;
        }
        if (got > 0) {
            to += got;
            at += got;
            size -= static_cast<std::size_t>(got);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

} // namespace qv::platform
