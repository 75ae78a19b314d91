// Opens the files of a store.
#pragma once

#include <lmdb.h>

#include <string>

#include "platform/registry_locations.h"
#include "platform/types.h"

namespace qv::platform
{

struct OpenedEnvironment
{
    MDB_env* environment = nullptr;
    MDB_dbi database = 0;
    bool readOnly = false;
};

// Opens or makes the store in that folder. 3: there is none, and this user may not make one.
// A file that is damaged or foreign is 1015 and stays as it is. Throws std::bad_alloc.
DWORD OpenEnvironment(StorePart part, const std::string& folder, OpenedEnvironment* opened);

} // namespace qv::platform
