// A forked child that runs a function, and what a parent sees it by.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>
#include <thread>

namespace qv::test
{

class Child
{
public:
    // The child ends with status 0 if run() is true, and 1 if not.
    template <class Run> explicit Child(Run run) : m_id(fork())
    {
        if (m_id == 0) {
            _exit(run() ? 0 : 1);
        }
    }
    ~Child() { Kill(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    void Kill()
    {
        if (m_id > 0 && kill(m_id, SIGKILL) == 0) {
            Succeeded();
        }
    }
    // Waits for its end.
    bool Succeeded() { return Status() == 0; }
    // The same: its exit code, or -1 if a signal has ended it.
    int Status()
    {
        int status = -1;
        waitpid(m_id, &status, 0);
        m_id = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t m_id;
};

// A value, zero at first, that this process and its children see. It is never unmapped.
template <class Value> Value& MakeShared()
{
    return *new (mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                      -1, 0)) Value();
}

// False if it did not come true in that time.
template <class Test>
bool Becomes(Test test, std::chrono::seconds patience = std::chrono::seconds(10))
{
    const auto end = std::chrono::steady_clock::now() + patience;
    bool isSo;
    while (!(isSo = test()) && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return isSo;
}

inline std::chrono::steady_clock::time_point StressEnd()
{
    const char* const seconds = std::getenv("QV_TEST_SECONDS");
    return std::chrono::steady_clock::now() +
           std::chrono::seconds(seconds != nullptr ? std::atol(seconds) : 2);
}

// A name of this run alone, also beside other runs.
inline std::string OwnName(const std::string& name)
{
    static const std::string prefix = "test." + std::to_string(getpid()) + ".";
    return prefix + name;
}

// None with sanitizers, which keep what is freed.
inline long ResidentPages()
{
    long pages = 0;
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    std::ifstream("/proc/self/statm") >> pages >> pages; // of these the second
#endif
    return pages;
}

inline std::ptrdiff_t CountDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// Locks one byte of the file for as long as the descriptor is open.
inline int LockByte(const char* path, off_t byte, short type = F_WRLCK)
{
    const int file = open(path, O_RDWR | O_CLOEXEC);
    struct flock lock = {type, SEEK_SET, byte, 1, 0};
    return fcntl(file, F_OFD_SETLK, &lock) == 0 ? file : -1;
}

} // namespace qv::test
