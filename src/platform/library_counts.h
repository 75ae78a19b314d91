// The counted set of open libraries: the system's own loader may crash on a handle that is not one.
#pragma once

namespace qv::platform
{

// Counts one open of the handle. False without memory.
bool CountLibrary(void* handle);
// Takes one open back. False if there is none.
bool UncountLibrary(void* handle);
bool IsLibraryOpen(void* handle);
// Empties the set. Only while no other thread is inside the layer.
void ForgetLibraryCounts();

} // namespace qv::platform
