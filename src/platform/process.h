// Child processes: the start, the waits, exit codes, names.
//
// A process is known by its pidfd. The calls that use one take it held (held_process.h), so that a
// close by another thread does not hit them.
#pragma once

#include "platform/held_process.h"
#include "platform/types.h"
#include "platform/wait.h"

namespace qv::platform
{

inline constexpr DWORD STARTF_USESTDHANDLES = 0x100;
inline constexpr DWORD CREATE_UNICODE_ENVIRONMENT = 0x400;
inline constexpr DWORD PROCESS_QUERY_INFORMATION = 0x400;
inline constexpr DWORD PROCESS_VM_READ = 0x10;
inline constexpr DWORD MAXIMUM_WAIT_OBJECTS = 64;

// The parts that mean something here.
struct STARTUPINFOW
{
    DWORD cb;
    DWORD dwFlags;
    Descriptor hStdInput; // these with STARTF_USESTDHANDLES; -1 is none
    Descriptor hStdOutput;
    Descriptor hStdError;
};

struct PROCESS_INFORMATION
{
    Descriptor hProcess;
    HANDLE hThread; // can only be closed
    DWORD dwProcessId;
    DWORD dwThreadId;
};

extern "C"
{
    // Says nothing of standard handles: a child has the same streams.
    void GetStartupInfoW(STARTUPINFOW* startup);

    // Starts the program, which is looked for by this name alone, and without an ".exe" at its end
    // if there is none of the whole name. A relative name is one in the caller's directory. The
    // command line is taken apart by the runtime library's rules. A null environment is the
    // caller's own. Of the descriptors that this layer made, the child gets the standard handles
    // alone. It starts with no signal blocked or ignored. Attributes are null, inheritance is on,
    // the flags are CREATE_UNICODE_ENVIRONMENT.
    //
    // Errors, and then nothing has run: 2, 3, 5, 6 for a standard handle that is not open, 32, 193,
    // 206, 1921 as the program is; 267 for a directory that cannot be entered; 4; 8 if the system
    // has no room for a process; 14.
    BOOL CreateProcessW(const WCHAR* application, const WCHAR* commandLine,
                        const SECURITY_ATTRIBUTES* process, const SECURITY_ATTRIBUTES* thread,
                        BOOL inherits, DWORD flags, const WCHAR* environment,
                        const WCHAR* directory, const STARTUPINFOW* startup,
                        PROCESS_INFORMATION* information);

    // A handle for the questions below; -1 on failure. Error 87: there is no such process. 5: it
    // may not be asked. Access and inheritance are 0x410 and off.
    Descriptor OpenProcess(DWORD access, BOOL inherits, DWORD id);
    // The path of the program with \ between its parts, as bytes. Returns its length, 0 on failure.
    // Errors: 122 if it does not fit, 31 if there is none any more, 6.
    DWORD GetProcessImageFileNameA(Descriptor process, char* path, DWORD size);
}

// Without a limit. WAIT_OBJECT_0; WAIT_FAILED with error 6 for what is no process or has been given
// up, 1131 for the caller's own.
DWORD WaitForSingleObject(const HeldProcess& process);

// For the first of them to end, without a limit; gives its index, the lowest if there are several.
// One that another thread gives up meanwhile counts no more. WAIT_FAILED with error 87 for more
// than 64, and if there are none or none are left.
DWORD WaitForMultipleObjects(DWORD count, const HeldProcess* processes);

// The code (exit_code.h), or STILL_ACTIVE. Error 6.
BOOL GetExitCodeProcess(HeldProcess& process, DWORD* code);

// Error 6, also for everybody but the first who closes it.
BOOL CloseHandle(HeldProcess& process);

} // namespace qv::platform
