// Checks of a store's file. LMDB trusts its files: a damaged page would end the process.
#pragma once

#include <lmdb.h>

#include <string>

namespace qv::platform
{

struct TurnLocks;

// Before LMDB opens the file. Only what LMDB divides by or maps; the rest it finds itself.
int CheckFileHeads(const std::string& path);

// One walk over all pages in use, in the state of the last commit, beside other readers and
// writers: LMDB can then go anywhere in it. What lies in a record is for its reader to check.
// MDB_CORRUPTED for damage, a part of the file that is missing included. Changes nothing.
int CheckPages(MDB_env* environment, TurnLocks& turns);

} // namespace qv::platform
