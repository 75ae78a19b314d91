// Steps of changes to the tree, inside a write transaction.
#pragma once

#include <string_view>

#include "platform/registry_records.h"
#include "platform/registry_sharing.h"
#include "platform/types.h"

namespace qv::platform
{

// What stands at a node, as bytes that the next change moves and read. 1018 for a node that has
// been deleted.
DWORD ReadFacts(const WriteTransaction& transaction, Node node, MDB_val* data, NodeFacts* facts);

// Sets the time of the node's last change to now. Fails as ReadFacts.
DWORD Touch(const WriteTransaction& transaction, Node node);

DWORD PutFacts(const WriteTransaction& transaction, Node node, Node parent,
               std::u16string_view name);

DWORD ReadFactsOfStore(const WriteTransaction& transaction, StoreFacts* facts);
DWORD PutFactsOfStore(const WriteTransaction& transaction, const StoreFacts& facts);

} // namespace qv::platform
