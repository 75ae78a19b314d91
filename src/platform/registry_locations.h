// Where the stores lie.
#pragma once

#include <string>

#include "platform/types.h"

namespace qv::platform
{

// The user's keys, and those that all users of the machine share.
enum class StorePart : unsigned
{
    kUser = 0,
    kMachine = 1,
};

inline constexpr unsigned kStoreParts = 2;

// The absolute path of a part's folder:
//   QVCORE6_STATE_DIR, if set: its sub-folders "user" and "machine".
//   The user's part: "qvcore6/registry" in XDG_DATA_HOME or in ~/.local/share.
//   The machine's part: /var/lib/qvcore6/registry if an installation has made /var/lib/qvcore6 and
//   this user may read it; else "qvcore6/registry-machine" beside the user's.
// 3 if there is no home. Throws std::bad_alloc.
DWORD FindStoreFolder(StorePart part, std::string* folder);

// Makes the missing levels, and the last one with that mode. 0, or what keeps it from being made.
DWORD MakeStoreFolder(const std::string& folder, unsigned mode);

} // namespace qv::platform
