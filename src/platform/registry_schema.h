// What an empty store begins with, and how a store of ours is known. Part of the file format.
#pragma once

#include <lmdb.h>

#include "platform/registry_locations.h"
#include "platform/registry_records.h"

namespace qv::platform
{

// The nodes of the predefined keys.
inline constexpr Node kLocalMachine64 = 1;
inline constexpr Node kLocalMachine32 = 2;
inline constexpr Node kClassesRoot64 = 3;
inline constexpr Node kClassesRoot32 = 4;
inline constexpr Node kCurrentUser = 5;
inline constexpr Node kFirstFreeNode = 16;

// Fills an empty store; ENOENT if it may only be read. MDB_INVALID: another program's file, or
// another schema.
int FindSchema(MDB_env* environment, StorePart part, bool readOnly, MDB_dbi* database);

} // namespace qv::platform
