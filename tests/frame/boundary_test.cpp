#include <gtest/gtest.h>

#include <stdexcept>

#include "frame/boundary.h"

namespace
{

using namespace qv::core;

TEST(Boundary, TurnsWhatIsThrownIntoCodes)
{
    const auto throwing = [](const auto& thrown) { return Boundary([&thrown] { throw thrown; }); };
    EXPECT_EQ(throwing(EQVCoreException(E_INVALIDARG)), E_INVALIDARG);
    EXPECT_EQ(throwing(std::bad_alloc()), E_OUTOFMEMORY);
    EXPECT_EQ(throwing(std::bad_array_new_length()), E_OUTOFMEMORY);
    EXPECT_EQ(throwing(std::length_error("too long")), E_FAIL);
    EXPECT_EQ(throwing(5), E_FAIL);
    EXPECT_EQ(Boundary([] { return QV_S_CREATED; }), QV_S_CREATED);
    EXPECT_EQ(Boundary([] {}), S_OK);
}

} // namespace
