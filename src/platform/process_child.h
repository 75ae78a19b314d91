// What a new process does between its making and its program.
//
// It runs in the parent's memory, on a stack of its own, while the parent's thread stands still, as
// after vfork: it changes nothing but the plan, and calls nothing that takes a lock or allocates.
#pragma once

#include "platform/descriptor_record.h"

namespace qv::platform
{

enum class StartStage
{
    Executed, // as far as is known
    StandardHandles,
    Directory,
    Number, // the parent has no place for the number of the child's handle
    Program,
};

struct StartPlan
{
    const char* program;
    char* const* arguments;
    char* const* environment;
    const char* directory;             // may be null
    const Descriptor* standardHandles; // three, or null for those of the parent; -1 closes

    Descriptor process; // the child's handle, there before the child runs
    bool holdsNamedObjects;

    // The child's answer.
    StartStage failedAt;
    int error;
};

// Takes a StartPlan. Returns only when the start has failed.
int RunChild(void* argument);

} // namespace qv::platform
