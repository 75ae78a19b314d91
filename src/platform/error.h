// The calling thread's last error number, and the translation of errno into it.
#pragma once

#include "platform/types.h"

namespace qv::platform
{

extern "C"
{
    DWORD GetLastError();
    void SetLastError(DWORD error);
}

// The error number for an errno value. Calls with a rule of their own test for it first.
DWORD ErrorFromErrno(int error);

// A layer function leaves the caller's errno as it was.
class KeepErrno
{
public:
    KeepErrno();
    ~KeepErrno();
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;

private:
    int m_errno;
};

} // namespace qv::platform
