// The views of this process, by their start.
#pragma once

#include "platform/mapping_section.h"

namespace qv::platform
{

class SectionViews
{
public:
    // Null with *error set.
    static void* Map(Descriptor section, RecordHold<SectionRecord> record, bool toWrite,
                     DWORD* error);
    static bool Unmap(const void* base);
    // True if it has views. No more come.
    static bool CloseHandle(SectionRecord& section);
    // The same memory in the same places, through another open file.
    static void Exchange(const SectionRecord& section, int file);
};

} // namespace qv::platform
