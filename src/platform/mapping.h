// Sections: named blocks of memory that processes share, and views of them.
//
// A handle is the open file of the section. A view keeps the section alive without it, as the
// mapping keeps the open file and thus its lock of life.
#pragma once

#include "platform/descriptor_handle.h"
#include "platform/security.h"
#include "platform/types.h"

namespace qv::platform
{

inline constexpr Descriptor kNoFile = -1; // for a section of memory, and as "none"
inline constexpr DWORD PAGE_READWRITE = 4;
inline constexpr DWORD FILE_MAP_WRITE = 2;
inline constexpr DWORD FILE_MAP_READ = 4;

extern "C"
{
    // Opens the section of this name, which keeps its size, or makes one. The last error is 183 if
    // it was there, 0 if it was made. -1 on failure: errors as for NamedObject::Open, but 1455
    // where memory for the section is not to be had; 87 for a size of 0 in any case.
    Descriptor CreateFileMappingW(Descriptor file, const SECURITY_ATTRIBUTES* attributes,
                                  DWORD protection, DWORD sizeHigh, DWORD sizeLow,
                                  const WCHAR* name);
    // Opens an existing one for reading, or reading and writing. -1 on failure, error 2 if there is
    // none; else the last error stays.
    Descriptor OpenFileMappingW(DWORD access, BOOL inherit, const WCHAR* name);

    // The whole section. Null on failure: 6 for what is no section, 5 for a view to write from a
    // handle to read, 87 for other access, 14 without memory or addresses.
    void* MapViewOfFile(Descriptor section, DWORD access, DWORD offsetHigh, DWORD offsetLow,
                        std::size_t count);
    // Error 487 for what is not the start of a view.
    BOOL UnmapViewOfFile(const void* view);
}

// Around a fork, which would copy a change of the views half done.
void HoldViews();
void ReleaseViews();

// In a child that shares the memory of this process but not its descriptors, with the lock of the
// named objects held: closes the handles but for those among the three kept ones, if given.
void CloseSectionCopies(const Descriptor* kept);

// At the end of the process or of this module, after EndNamedObjects: whatever is still open no
// longer keeps its section alive, but stays usable. Other threads may be using it.
void EndSections();
// After an unload.
void ForgetViews();

} // namespace qv::platform
