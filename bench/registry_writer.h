// Another process that writes without pause.
#pragma once

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstddef>
#include <new>

#include "pin.h"
#include "registry_tree.h"

namespace bench
{

using WriteFunction = bool (*)(const Place&, const void* data, std::size_t size);

// Writes until the end of the scope.
class Writer
{
public:
    explicit Writer(WriteFunction write)
        : m_writes(static_cast<std::atomic<long>*>(mmap(nullptr, sizeof(std::atomic<long>),
                                                        PROT_READ | PROT_WRITE,
                                                        MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
        new (m_writes) std::atomic<long>(0);
        m_process = fork();
        if (m_process == 0) {
            Run(write);
        }
        while (m_writes->load() < 3 && waitpid(m_process, nullptr, WNOHANG) == 0) {
            usleep(1000);
        }
    }
    ~Writer()
    {
        if (m_process > 0) { // kill() takes -1 for every process
            kill(m_process, SIGKILL);
            waitpid(m_process, nullptr, 0);
        }
        munmap(m_writes, sizeof *m_writes);
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

private:
    [[noreturn]] void Run(WriteFunction write)
    {
        const Pinned pinned(0);
        const char data[kDataSize] = "another forty bytes for another value";
        for (int i = 0; write(MakePlace(kOnDisk.top, i % kOnDisk.keys, 0), data, sizeof data);
             ++i) {
            ++*m_writes;
        }
        _exit(1);
    }

    std::atomic<long>* m_writes;
    pid_t m_process = -1;
};

} // namespace bench
