// Keeps the numbers of the standard streams from what is opened meanwhile: a program may have
// closed these, and what it prints must not go into a file of the layer's.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include "platform/no_cancellation.h"

namespace qv::platform
{

class StandardNumbers
{
public:
    StandardNumbers();
    ~StandardNumbers();
    StandardNumbers(const StandardNumbers&) = delete;
    StandardNumbers& operator=(const StandardNumbers&) = delete;

private:
    NoCancellation m_noCancellation; // else the numbers would stay taken
    bool m_taken[STDERR_FILENO + 1] = {};
    struct stat m_root = {};
};

} // namespace qv::platform
