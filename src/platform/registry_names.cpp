#include "platform/registry_names.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/registry_fold_table.h"

namespace qv::platform
{

namespace
{

constexpr std::uint64_t kFnvPrime = 0x100000001B3;
constexpr std::uint64_t kFirstBasis = 0xCBF29CE484222325;
constexpr std::uint64_t kSecondBasis = 0x9E3779B97F4A7C15;

void PutBigEndian(std::uint64_t number, unsigned char* bytes)
{
    for (int i = 7; i >= 0; --i) {
        bytes[i] = static_cast<unsigned char>(number);
        number >>= 8;
    }
}

} // namespace

WCHAR FoldWideUnit(WCHAR unit)
{
    const FoldRow* const row =
        std::lower_bound(std::begin(kFoldRows), std::end(kFoldRows), unit,
                         [](const FoldRow& left, WCHAR right) { return left.last < right; });
    if (row == std::end(kFoldRows) || unit < row->first || (unit - row->first) % row->step != 0) {
        return unit;
    }
    return static_cast<WCHAR>(unit + row->delta);
}

bool SameName(std::u16string_view name, const unsigned char* stored, std::size_t units)
{
    if (name.size() != units) {
        return false;
    }
    for (std::size_t i = 0; i < units; ++i) {
        WCHAR unit;
        std::memcpy(&unit, stored + i * sizeof unit, sizeof unit);
        if (unit != name[i] && FoldUnit(unit) != FoldUnit(name[i])) {
            return false;
        }
    }
    return true;
}

bool SameName(std::u16string_view left, std::u16string_view right)
{
    return SameName(left, reinterpret_cast<const unsigned char*>(right.data()), right.size());
}

void HashFoldedName(const WCHAR* name, std::size_t units, unsigned char* hash)
{
    std::uint64_t first = kFirstBasis;
    std::uint64_t second = kSecondBasis;
    for (std::size_t i = 0; i < units; ++i) {
        const WCHAR unit = FoldUnit(name[i]);
        first = (first ^ unit) * kFnvPrime;
        second = ((second << 23 | second >> 41) ^ unit) * kFnvPrime;
    }
    PutBigEndian(first, hash);
    PutBigEndian(second, hash + 8);
}

} // namespace qv::platform
