// A store file that is shorter than its own books say.
#pragma once

#include <lmdb.h>

namespace qv::platform
{

// 0 if everything in use lies within the file, MDB_INVALID if its end was cut off: reading there
// would end the process. Changes nothing.
int CheckFileLength(MDB_env* environment, bool readOnly);

} // namespace qv::platform
