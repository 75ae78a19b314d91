#include <gtest/gtest.h>
#include <qvcore6/result.h>

namespace
{

TEST(Result, MapsOnlyTheNumbersOfItsTable)
{
    const uint32_t rows[][2] = {
        {0, 0},           {2, 0x80070002},  {3, 0x80070002},   {5, 0x80070005},   {6, 0x80070006},
        {14, 0x8007000E}, {32, 0x80070005}, {183, 0x800700B7}, {258, 0x800705B4},
    };
    for (const auto& [native, result] : rows) {
        EXPECT_EQ(static_cast<uint32_t>(QVResultFromNative(native)), result) << native;
    }
    // Neighbours and tempting numbers.
    for (const uint32_t other : {1u, 4u, 7u, 8u, 126u, 1460u, 0x80070002u, 0xFFFFFFFFu}) {
        EXPECT_EQ(static_cast<uint32_t>(QVResultFromNative(other)), 0x80004005) << other;
    }
}

} // namespace
