// The table of lock statistics as text.
#pragma once

#include "locks/lock_stat_table.h"

namespace qv::core
{

// Appends one block to the file. A null name or file means the usual one. Throws what goes wrong;
// the lines before that are in the file.
void DumpLockTable(const LockTable& table, const char* name, const char16_t* file);

} // namespace qv::core
