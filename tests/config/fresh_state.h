// A folder of its own for the stores of a test program.
#pragma once

#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

namespace qv::test
{

// In memory: a commit on disk waits for the disk.
class FreshState
{
public:
    FreshState()
    {
        // Some tests go on as another user.
        if (mkdtemp(m_path.data()) == nullptr || chmod(m_path.c_str(), 0755) != 0) {
            abort();
        }
        setenv("QVCORE6_STATE_DIR", m_path.c_str(), 1);
    }
    ~FreshState()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    FreshState(const FreshState&) = delete;
    FreshState& operator=(const FreshState&) = delete;

    const std::string& Path() const { return m_path; }

private:
    std::string m_path = "/dev/shm/qvcore6-test-XXXXXX";
};

} // namespace qv::test
