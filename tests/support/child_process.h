// A forked child that runs a function, and shared memory to see it by.
#pragma once

#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <new>
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
        if (m_id > 0) {
            kill(m_id, SIGKILL);
            Succeeded();
        }
    }
    // Waits for its end.
    bool Succeeded()
    {
        int status = -1;
        waitpid(m_id, &status, 0);
        m_id = 0;
        return status == 0;
    }

private:
    pid_t m_id;
};

// One value, zero at first, that this process and its children see.
template <class Value> class Shared
{
public:
    Shared()
        : m_value(new (mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Value())
    {}
    ~Shared() { munmap(m_value, sizeof(Value)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    Value* operator->() const { return m_value; }

private:
    Value* m_value;
};

// False if it did not come true in that time.
template <class Test>
bool Becomes(Test test, std::chrono::seconds patience = std::chrono::seconds(10))
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!test()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

inline std::chrono::seconds StressTime()
{
    const char* const seconds = std::getenv("QV_TEST_SECONDS");
    return std::chrono::seconds(seconds != nullptr ? std::atol(seconds) : 2);
}

} // namespace qv::test
