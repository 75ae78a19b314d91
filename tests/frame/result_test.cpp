#include <gtest/gtest.h>
#include <qvcore6/result.h>

namespace
{

struct Row
{
    uint32_t native;
    uint32_t result;
};

TEST(Result, MapsOnlyTheNumbersOfItsTable)
{
    const Row rows[] = {
        {0, 0},
        {2, 0x80070002},
        {3, 0x80070002},
        {5, 0x80070005},
        {6, 0x80070006},
        {14, 0x8007000E},
        {32, 0x80070005},
        {183, 0x800700B7},
        {258, 0x800705B4},
        // Neighbours and tempting numbers.
        {1, 0x80004005},
        {4, 0x80004005},
        {7, 0x80004005},
        {8, 0x80004005},
        {126, 0x80004005},
        {1460, 0x80004005},
        {0x80070002, 0x80004005},
        {0xFFFFFFFF, 0x80004005},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(static_cast<uint32_t>(QVResultFromNative(row.native)), row.result) << row.native;
    }
}

} // namespace
