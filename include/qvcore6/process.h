/*
 * Child processes: start, talk to, wait for, let go of.
 *
 * A child is known by its handle, a pidfd of this process. Whoever creates a child owes it one
 * reaping, by QVProcessJoin, QVProcessJoinChild or a QVProcessGetExitCode that succeeds, or one
 * QVProcessDetach. Each of these closes the handle; the number may be another's afterwards.
 *
 *     QVHandle streams[3] = {QV_HANDLE_NONE, QV_HANDLE_NONE, 2}; // two pipes, and our own errors
 *     QVHandle child;
 *     char sorted[512];
 *     uint32_t size, exitCode;
 *     if (QVProcessCreate(u"/usr/bin/sort", u"-r --unique", u"/", NULL, 0, streams, &child) < 0) {
 *         return;
 *     }
 *     QVFileWrite(streams[0], "a\nb\na\n", 6, &size);
 *     QVFileClose(streams[0]);                         // the end of its input
 *     QVFileRead(streams[1], sorted, sizeof sorted, &size);
 *     QVFileClose(streams[1]);
 *     QVProcessJoin(child, &exitCode);                 // 0; sorted holds "b\na\n"
 *
 * Exit codes are 0 to 255, or 128 plus the number of the signal that ended the process. 0xFFFFFFFF
 * is a code that the system does not tell: on kernels before 6.15, of a child in a process that
 * ignores SIGCHLD or that waits for all children itself; else such processes get the codes as well.
 *
 * Guaranteed: no child stays a zombie, also a detached one: while detached children run, a thread
 * of the library waits for their ends, with all signals blocked; where the system refuses it, the
 * next call of this family looks after them. The library waits for no process but those whose
 * handles it was given, and handles no SIGCHLD. A child gets no descriptor that the library opened,
 * apart from its three streams, however many threads start children at once; descriptors that the
 * host leaves inheritable pass on as usual. A child starts with every signal at its default and
 * none blocked. A start that fails has run nothing and leaves nothing. Starting costs the same
 * however much memory the process has, and runs none of its fork handlers.
 *
 * A parent that writes to a child which no longer reads gets an error from QVFileWrite; its own
 * write() would raise SIGPIPE.
 *
 * Any thread may call any function. Give each child to one owner: of several that reap or detach
 * one, the first gets it and the others E_HANDLE. The functions are no cancellation points.
 *
 * In a forked child the parent's children are none of its own. It may close its copies of their
 * handles by QVProcessDetach.
 */
#ifndef QVCORE6_PROCESS_H
#define QVCORE6_PROCESS_H

#include <qvcore6/base.h>

QV_BEGIN_DECLS

/*
 * Starts a program. *process receives the child's handle, QV_HANDLE_NONE after a failure.
 *
 * program is a path, relative to the current directory of this process; no search path is used.
 * ".exe" is added unless the name ends so. If there is no file of that name, the one without the
 * suffix is taken. The file must be executable, a script with its interpreter in the first line.
 *
 * arguments, which may be null, follow that name and a blank in the command line, exactly as they
 * are. The child's argument array is made of that line: blanks and tabs separate, quotes keep them;
 * an even number of backslashes before a quote are half as many, with an odd one the quote is an
 * ordinary character; two quotes in a row between quotes are an ordinary one. In the name itself
 * quotes only delimit, and one with blanks is split, though the right program runs.
 *
 * workingDirectory is the child's; null means the parent's.
 *
 * environment is an array of strings of the form name=value that a null ends; empty strings are
 * left out. The child gets them sorted, without regard to case. null means the parent's own
 * environment, which must not be changed meanwhile.
 *
 * reserved has no effect.
 *
 * stdHandles is null, or an array of three: input, output, errors. A handle in it becomes that
 * stream of the child and stays the caller's. QV_HANDLE_NONE asks for a pipe, and the slot receives
 * the parent's end of it: one to write to for the input, to read from for the others. Close it by
 * QVFileClose. After a failure the slots are as they were. With a null array the child has the
 * parent's streams.
 *
 * While a QVProcessJoinChild of another thread waits, the child starts, but the call returns after
 * that wait.
 *
 * S_OK. QV_E_FILE_NOT_FOUND: no such program, or its interpreter is missing. E_ACCESSDENIED: not
 * executable, or being written to. E_HANDLE: a handle in stdHandles is not open. E_OUTOFMEMORY.
 * E_FAIL: all else, as no program by its contents, a working directory that cannot be entered, a
 * command line or an environment that is too long, no descriptor or process to be had.
 */
QV_EXPORT QVRESULT QVProcessCreate(const QVWChar* program, const QVWChar* arguments,
                                   const QVWChar* workingDirectory,
                                   const QVWChar* const* environment, uint32_t reserved,
                                   QVHandle* stdHandles, QVHandle* process);

/*
 * Gives the child up. It runs on, and its exit code is lost. Its descriptor stays open, out of the
 * caller's reach, until the library has seen its end.
 * S_OK; E_HANDLE for what is not open or has been given up.
 */
QV_EXPORT QVRESULT QVProcessDetach(QVHandle process);

/*
 * Reaps the process if it has ended; never waits. *exitCode is 0xFFFFFFFF after a failure.
 * S_OK: the handle is gone. E_FAIL: it runs, and nothing changes. E_HANDLE for what is no process,
 * or has been given up.
 */
QV_EXPORT QVRESULT QVProcessGetExitCode(QVHandle process, uint32_t* exitCode);

/*
 * Waits, without a limit, until the process has ended, and reaps it. exitCode may be null;
 * *exitCode is 0xFFFFFFFF after a failure. A pidfd of another process, or one that the caller
 * opened itself, is waited for and closed just the same.
 * S_OK. E_HANDLE for what is no process or has been given up, also meanwhile. E_FAIL for the handle
 * of the caller's own process, and for a wait that the system refused.
 */
QV_EXPORT QVRESULT QVProcessJoin(QVHandle process, uint32_t* exitCode);

/*
 * Waits, without a limit, until one of the children that QVProcessCreate started has ended, and
 * reaps it; if several have, the one with the lowest handle. *process receives the handle, which is
 * gone then, QV_HANDLE_NONE after a failure. exitCode as for QVProcessJoin.
 *
 * While it waits, other threads' calls that add or remove a child wait as well, until some child
 * ends. A child that another thread reaps or detaches meanwhile counts no more.
 *
 * S_OK. E_FAIL if there are no children, or more than 64. E_OUTOFMEMORY.
 */
QV_EXPORT QVRESULT QVProcessJoinChild(QVHandle* process, uint32_t* exitCode);

/* A number that stands for the calling process in each process: -1, which is QV_HANDLE_NONE. */
QV_EXPORT QVHandle QVProcessGetHandle(void);

/* The calling process's id. */
QV_EXPORT uint32_t QVProcessGetID(void);

/*
 * Stores the file name of a process's program, without its folder, in name: at most size - 1 bytes,
 * the rest cut, and zeros up to size. 1; 0 if there is no such process, it may not be asked, its
 * program's path has 260 bytes or more, or size is 0, and then name is as it was.
 */
QV_EXPORT int16_t QVProcessGetName(uint32_t processId, char* name, uint32_t size);

QV_END_DECLS

#endif
