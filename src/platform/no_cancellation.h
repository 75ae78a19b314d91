// Keeps a thread from being cancelled inside calls that would leave a lock or half of something.
#pragma once

#include <pthread.h>

namespace qv::platform
{

class NoCancellation
{
public:
    NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_state); }
    ~NoCancellation() { pthread_setcancelstate(m_state, nullptr); }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;

private:
    int m_state = PTHREAD_CANCEL_ENABLE;
};

} // namespace qv::platform
