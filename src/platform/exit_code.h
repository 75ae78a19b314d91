// How a process ended.
//
// Only the process of this very handle is ever waited for: other children are the host's.
#pragma once

#include "platform/descriptor_record.h"
#include "platform/types.h"

namespace qv::platform
{

// Of one that somebody else has waited for, or whose end the system keeps from us.
inline constexpr DWORD kUnknownExitCode = 0xFFFFFFFF;

// STILL_ACTIVE while it runs, else the code; a child of this process is gone after that, and is
// not asked for again. Returns 0, or 6 for what is no process. Never blocks for long.
//
// The code is the status, 0 to 255, or 128 plus the number of the signal that ended the process.
DWORD TakeExitCode(Descriptor process, DWORD* code);

// Waits, without a limit, until the code can be taken: later than the handle tells the end, if a
// debugger is to hear of it first. 0, or an error number: 6 for what is no process.
DWORD AwaitEnd(Descriptor process);

// Whether the descriptor is the handle of a process.
bool IsProcess(Descriptor descriptor);

// Of a child of this process: false while it runs, and true once it is gone.
bool ReapIfEnded(Descriptor process);

// Waits for the end of a child that has not become a program. It leaves nothing.
void ReapStillborn(Descriptor process);

} // namespace qv::platform
