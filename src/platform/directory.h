// Folders: what is in them, making and removing them.
#pragma once

#include "platform/file.h"
#include "platform/full_path.h"
#include "platform/types.h"

namespace qv::platform
{

inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x00000010;

inline constexpr int FindExInfoBasic = 1;
inline constexpr int FindExSearchNameMatch = 0;

struct WIN32_FIND_DATAW
{
    DWORD dwFileAttributes; // read-only, a folder, or neither
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    DWORD nFileSizeHigh; // 0 for a folder
    DWORD nFileSizeLow;
    DWORD dwReserved0;
    DWORD dwReserved1;
    WCHAR cFileName[MAX_PATH];
    WCHAR cAlternateFileName[14]; // empty: there are no short names
};

// A search, which does not leave the library's own records.
class FolderSearch;
using SearchHandle = FolderSearch*;

inline SearchHandle NoSearch()
{
    return reinterpret_cast<SearchHandle>(std::intptr_t{-1});
}

extern "C"
{
    // Searches the folder in front of the pattern's last separator for names that match the rest: *
    // stands for any units, ? for one, ASCII letters in either case. "." and ".." come first. A
    // link counts as what it leads to, if that is there. What cannot be asked about comes without
    // sizes and times; what has gone meanwhile does not come. NoSearch() on failure: 2 if nothing
    // matches; 3 without the folder; 4; 5; 14; 206; 267 for a file in the folder's place.
    SearchHandle FindFirstFileExW(const WCHAR* pattern, int level, WIN32_FIND_DATAW* data,
                                  int operation, void* filter, DWORD flags);
    // Error 18 at the end, again and again.
    BOOL FindNextFileW(SearchHandle search, WIN32_FIND_DATAW* data);
    // Error 6 for NoSearch() and null.
    BOOL FindClose(SearchHandle search);

    // Errors: 183 if there is anything of this name; 3 without its folder; 5.
    BOOL CreateDirectoryW(const WCHAR* path, const SECURITY_ATTRIBUTES* attributes);
    // Errors: 2, 3; 145 for a folder with something in it; 267 for a file; 5; 32 if it is in use.
    BOOL RemoveDirectoryW(const WCHAR* path);
}

} // namespace qv::platform
