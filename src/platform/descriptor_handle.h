// What can be done with a descriptor of any kind.
#pragma once

#include "platform/descriptor_record.h"

namespace qv::platform
{

// Gives the handle back, with what belongs to it. Error 6 for what is not open. The pseudo handle:
// true, without effect. The descriptor is gone also after another error, as when a write that the
// system had put off fails.
BOOL CloseHandle(Descriptor descriptor);

// Closes without a record. 0 or an error number; the descriptor is gone unless that is 6.
DWORD CloseDescriptor(Descriptor descriptor);

// The same open file under a number above those of the standard streams, which a program may have
// closed. Takes -1 as well, with errno as it was; -1 with errno after a failure, and then nothing
// is open.
Descriptor AboveStandardNumbers(Descriptor descriptor);

// Opens a path, or what an open descriptor is of, with other rights: as open, but over signals,
// close-on-exec, and above the standard numbers. -1 with errno.
Descriptor OpenPath(const char* path, int flags, unsigned mode = 0);
Descriptor OpenAgain(Descriptor descriptor, int flags);

} // namespace qv::platform
