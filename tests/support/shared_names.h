// Each test leaves no file of a named object, and no descriptor.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/child_process.h"

namespace qv::test
{

class SharedNames : public testing::Test
{
protected:
    void TearDown() override
    {
        for (const auto& entry : std::filesystem::directory_iterator("/dev/shm")) {
            EXPECT_EQ(std::string::npos, entry.path().string().find(OwnName(""))) << entry;
        }
        EXPECT_EQ(m_descriptors, CountDescriptors());
    }
    const std::ptrdiff_t m_descriptors = CountDescriptors();
};

} // namespace qv::test
