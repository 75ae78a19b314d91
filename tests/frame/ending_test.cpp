// Processes end with their own exit code, whatever their threads do in the library meanwhile.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <sys/wait.h>

namespace
{

int ExitCodeOf(const std::string& program, const std::string& how)
{
    const int status = std::system(("timeout 120 '" + program + "' " + how).c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(Ending, KeepsTheExitCode)
{
    const char* const ways[] = {"return", "exit-from-thread", "fork", "fork-busy", "fork-held"};
    for (const char* const program : {QV_TEST_LINKED, QV_TEST_DLOPENED, QV_TEST_EARLY}) {
        for (const char* const way : ways) {
            // The sanitizers' own allocator may be locked for ever in a child of a busy process.
            if (QV_TEST_SANITIZED != 0 && std::string(way) == "fork-busy") {
                continue;
            }
            for (int round = 0; round < 5; ++round) {
                EXPECT_EQ(ExitCodeOf(program, way), 42) << program << ' ' << way;
            }
        }
    }
    EXPECT_EQ(ExitCodeOf(QV_TEST_DLOPENED, "unload"), 42);
}

} // namespace
