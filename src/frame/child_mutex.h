// A mutex in a forked child, where the thread that held it in the parent is not.
#pragma once

#include <qvcore6/mutex.h>

namespace qv::core
{

// Free, or held by the forking thread as before. For a plain mutex whose holder cannot have left
// what it guards half done.
void FreeMutexInChild(QVMutex mutex);

} // namespace qv::core
