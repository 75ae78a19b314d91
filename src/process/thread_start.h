// The start of a thread, up to its place in the table.
#pragma once

#include <qvcore6/thread.h>

#include <cstdint>

class CQVThreadManager;

namespace qv::core
{

// The thread's id, which is in *idOut before the entry function runs. Throws; then there is no
// thread, the entry function has not run, and *idOut is 0.
std::uint32_t StartThread(CQVThreadManager& manager, QVThreadEntry entry, void* argument,
                          std::uint32_t stackSize, std::uint32_t* idOut);

} // namespace qv::core
