// Names of keys and values: their limits, and how they compare.
//
// All of this is part of the store's file format.
#pragma once

#include <cstddef>
#include <string_view>

#include "platform/types.h"

namespace qv::platform
{

inline constexpr std::size_t kMaxKeyName = 255;
inline constexpr std::size_t kMaxValueName = 16383;
inline constexpr std::size_t kNameHashSize = 16;

// Upper case of one unit that is not ASCII.
WCHAR FoldWideUnit(WCHAR unit);

inline WCHAR FoldUnit(WCHAR unit)
{
    if (unit < 0x80) {
        return unit >= u'a' && unit <= u'z' ? static_cast<WCHAR>(unit - 0x20) : unit;
    }
    return FoldWideUnit(unit);
}

// Compares with a name as it stands in a record, at any alignment.
bool SameName(std::u16string_view name, const unsigned char* stored, std::size_t units);

bool SameName(std::u16string_view left, std::u16string_view right);

extern "C"
{
    // Stands for the end of a name that is too long for a record's key. Names may share a hash.
    void HashFoldedName(const WCHAR* name, std::size_t units, unsigned char* hash);
}

} // namespace qv::platform
