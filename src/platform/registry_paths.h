// From a path to its node.
#pragma once

#include <string_view>

#include "platform/registry_records.h"
#include "platform/registry_sharing.h"
#include "platform/types.h"

namespace qv::platform
{

// The text of a path that may be null, without the one '\' at its end.
std::u16string_view TrimPath(const WCHAR* path);

// 161: a leading '\' or an empty component. 87: a component that is too long.
DWORD CheckPath(std::u16string_view path);

// The next component; the rest of the path stays.
std::u16string_view TakeComponent(std::u16string_view* path);

// 0 with the child; 2 if there is none.
DWORD FindChild(MDB_txn* transaction, MDB_dbi database, Node parent, std::u16string_view name,
                Node* child);

// 0, or 1018 for a node that has been deleted.
DWORD CheckNode(MDB_txn* transaction, MDB_dbi database, Node node);

// Checks the path and follows it. 2 if a level is missing, 1018 if the base has been deleted.
DWORD FindNode(const ReadView& view, Node base, std::u16string_view path, Node* node);

} // namespace qv::platform
