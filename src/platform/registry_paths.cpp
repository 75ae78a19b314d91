#include "platform/registry_paths.h"

#include <algorithm>

#include "platform/registry_lmdb.h"

namespace qv::platform
{

namespace
{

constexpr WCHAR kSeparator = u'\\';

DWORD Follow(const ReadView& view, Node base, std::u16string_view path, Node* node)
{
    *node = base;
    while (!path.empty()) {
        const std::u16string_view name = TakeComponent(&path);
        if (const DWORD error = FindChild(view.Get(), view.Database(), *node, name, node)) {
            return error;
        }
    }
    return ERROR_SUCCESS;
}

// Neighbours share all but the last component, so the way to it is remembered too.
DWORD FollowThroughParent(const ReadView& view, Node base, std::u16string_view path, Node* node)
{
    PathCache& cache = *view.Cache();
    const std::uint64_t deletions = view.Deletions();
    const std::size_t end = path.rfind(kSeparator);
    if (end == std::u16string_view::npos) {
        return Follow(view, base, path, node);
    }
    const std::u16string_view way = path.substr(0, end);
    Node parent;
    if (!cache.Find(base, way, deletions, &parent)) {
        if (const DWORD error = Follow(view, base, way, &parent)) {
            return error;
        }
        cache.Insert(base, way, deletions, parent);
    }
    return Follow(view, parent, path.substr(end + 1), node);
}

} // namespace

std::u16string_view TrimPath(const WCHAR* path)
{
    std::u16string_view text = path == nullptr ? std::u16string_view() : path;
    if (text.size() > 1 && text.back() == kSeparator) {
        text.remove_suffix(1);
    }
    return text;
}

DWORD CheckPath(std::u16string_view path)
{
    if (path.empty()) {
        return ERROR_SUCCESS;
    }
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find(kSeparator, begin), path.size());
        if (end == begin) {
            return ERROR_BAD_PATHNAME;
        }
        if (end - begin > kMaxKeyName) {
            return ERROR_INVALID_PARAMETER;
        }
        begin = end + 1;
    }
    return ERROR_SUCCESS;
}

std::u16string_view TakeComponent(std::u16string_view* path)
{
    const std::size_t end = path->find(kSeparator);
    const std::u16string_view name = path->substr(0, end);
    path->remove_prefix(end == std::u16string_view::npos ? path->size() : end + 1);
    return name;
}

DWORD FindChild(MDB_txn* transaction, MDB_dbi database, Node parent, std::u16string_view name,
                Node* child)
{
    RecordKey key(parent, RecordKind::kSubKey, name);
    MDB_val data;
    SubKey found;
    const int result = FindRecord(transaction, database, key, name, RecordKind::kSubKey, &data);
    if (result != 0) {
        return ErrorFromStore(result);
    }
    // Nodes are numbered in the order of their making; a circle of keys would have no end.
    if (!SubKey::Read(data, &found) || found.child <= parent) {
        return ERROR_REGISTRY_CORRUPT;
    }
    *child = found.child;
    return ERROR_SUCCESS;
}

DWORD CheckNode(MDB_txn* transaction, MDB_dbi database, Node node)
{
    RecordKey key(node, RecordKind::kFacts);
    MDB_val bytes = key.Bytes();
    MDB_val data;
    const int result = mdb_get(transaction, database, &bytes, &data);
    return result == MDB_NOTFOUND ? ERROR_KEY_DELETED : ErrorFromStore(result);
}

DWORD FindNode(const ReadView& view, Node base, std::u16string_view path, Node* node)
{
    PathCache* const cache = view.Cache();
    if (path.empty()) {
        *node = base;
        return CheckNode(view.Get(), view.Database(), base);
    }
    if (cache != nullptr && cache->Find(base, path, view.Deletions(), node)) {
        return ERROR_SUCCESS;
    }
    if (const DWORD error = CheckPath(path)) {
        return error;
    }
    const DWORD error = cache != nullptr ? FollowThroughParent(view, base, path, node)
                                         : Follow(view, base, path, node);
    if (error == ERROR_FILE_NOT_FOUND) {
        const DWORD gone = CheckNode(view.Get(), view.Database(), base);
        return gone != ERROR_SUCCESS ? gone : error;
    }
    if (error == ERROR_SUCCESS && cache != nullptr) {
        cache->Insert(base, path, view.Deletions(), *node);
    }
    return error;
}

} // namespace qv::platform
