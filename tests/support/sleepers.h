// Threads that are to be asleep in a wait before a test goes on.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>

namespace qv::test
{

// Runs a body that waits at its end. Joined on destruction.
class Sleeper
{
public:
    explicit Sleeper(std::function<void()> body)
        : m_thread([this, body = std::move(body)] {
              m_id = static_cast<pid_t>(syscall(SYS_gettid));
              body();
              m_isDone = true;
              m_isDone.notify_all();
          })
    {}

    bool IsDone() const { return m_isDone; }

    // Returns once the thread sleeps, or is done.
    void AwaitAsleep() const
    {
        for (int seen = 0; seen < 3 && !m_isDone;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            seen = m_id != 0 && State() == 'S' ? seen + 1 : 0;
        }
    }

    void AwaitDone() const { m_isDone.wait(false); }

private:
    char State() const
    {
        std::ifstream file("/proc/self/task/" + std::to_string(m_id) + "/stat");
        std::string name;
        char state = '?';
        std::getline(file, name, ')') >> state;
        return state;
    }

    std::atomic<pid_t> m_id{0};
    std::atomic<bool> m_isDone{false};
    std::jthread m_thread; // the last to be made and the first to go
};

} // namespace qv::test
