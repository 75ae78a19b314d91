// What the tests of the ini file share.
#pragma once

#include <qvcore6/semaphore.h>

#include <fstream>
#include <iterator>
#include <string>

#include "support/child_process.h"

namespace qv::test
{

inline std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The semaphore of the ini file's lock, as another program sees it; a unit taken is given back.
class IniSemaphore
{
public:
    IniSemaphore() { QVNamedSemOpen("QVCore_IniFileLock", 1, &m_semaphore); }
    ~IniSemaphore()
    {
        if (m_isTaken) {
            QVNamedSemPost(m_semaphore);
        }
        QVNamedSemClose(m_semaphore);
    }
    IniSemaphore(const IniSemaphore&) = delete;
    IniSemaphore& operator=(const IniSemaphore&) = delete;

    bool IsFree() { return QVNamedSemTryWait(m_semaphore) == S_OK; }
    // Others on this machine may hold it for a moment.
    bool Takes()
    {
        return m_isTaken = Becomes([&] { return IsFree(); });
    }

private:
    QVSemaphore m_semaphore{};
    bool m_isTaken = false;
};

} // namespace qv::test
