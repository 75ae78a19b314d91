/*
 * Who the machine is on the network: its host name, its own addresses, and whether a name or an
 * address means the computer that the process runs on.
 *
 *     #include <netdb.h>
 *
 *     char name[256];
 *     if (QVGetHostNameA(name, sizeof name) >= 0 && QVIsThisMyComputerA(server)) {
 *         // use shared memory instead of a connection to server
 *     }
 *
 * Addresses travel as chains of the record addrinfo, which <netdb.h> defines, with that header's
 * constants. Null arguments are undefined behaviour where the function does not say otherwise. Any
 * thread may call any function at any time. A call that resolves a name waits for the resolver and
 * is no cancellation point: the C library could be left with a lock held.
 *
 * A forked child keeps what its parent knew.
 */
#ifndef QVCORE6_ADDRESS_H
#define QVCORE6_ADDRESS_H

#include <qvcore6/base.h>
#include <qvcore6/result.h>

struct addrinfo;

QV_BEGIN_DECLS

/*
 * The addresses of the machine's interfaces that are up, IPv4 before IPv6, and what "localhost"
 * stands for. Each chain may be null. In myAddresses only ai_family, ai_addrlen, ai_addr, ai_next
 * and the first node's ai_canonname (the canonical name of localhost) are set; it holds neither
 * 127.0.0.0/8 nor ::1, and the port of each address is 0. fe80::1%1, where the machine has it,
 * stands at the head of localhostInfo instead.
 *
 * Both are found at the first call in the process and never change. They belong to the library: do
 * not free or change them, nor use them after it was unloaded. What cannot be found (no resolver,
 * no IPv6) is missing without a report.
 *
 * S_OK. E_OUTOFMEMORY, or E_FAIL if the library has stopped: *myAddresses is null then,
 * *localhostInfo is as it was, and the next call tries again.
 */
QV_EXPORT QVRESULT QVGetMyAddressInformation(struct addrinfo** myAddresses,
                                             struct addrinfo** localhostInfo);

/*
 * 1 if an IPv4 or IPv6 address stands in both chains, else 0. Ports, scopes and flow information do
 * not count. A null chain shares nothing.
 */
QV_EXPORT int32_t QVCompareAddressInformation(const struct addrinfo* first,
                                              const struct addrinfo* second);

/*
 * 1 if the name or the address in text form means this computer, else 0. Case does not count, nor
 * what stands behind the first 1025 bytes.
 *
 * The empty name, "localhost", "127.0.0.1", "::1" and the host name do so without a look. Any other
 * is resolved once in the life of the process and its answer kept, also that of a name which the
 * resolver did not know: this computer is one of whose addresses one is in the chains of
 * QVGetMyAddressInformation. One name is resolved at a time, and all callers wait for it. The kept
 * names are never dropped, so do not ask about names that a stranger can make up without end.
 *
 * 0 too if the library has stopped or memory is short at the first call; nothing is kept then.
 */
QV_EXPORT int16_t QVIsThisMyComputerA(const char* name);
/* The same for the name in the charset of the environment; 0 if that takes more than 1025 bytes. */
QV_EXPORT int16_t QVIsThisMyComputerW(const QVWChar* name);

/*
 * The host name. The size is in characters, with the terminator; 65 hold every one (HOST_NAME_MAX
 * of gethostname(2)). S_OK; E_FAIL if it does not fit, and the buffer is as it was then. Another
 * failure of the system's is that failure's code.
 */
QV_EXPORT QVRESULT QVGetHostNameA(char* buffer, uint32_t size);
QV_EXPORT QVRESULT QVGetHostName(QVWChar* buffer, uint32_t size);

/*
 * getaddrinfo(3) for the name in lower case: its arguments (a null name as well), its result (0, or
 * EAI_...; EAI_MEMORY too where the name cannot be copied) and its errno. An IPv6 address may also
 * be written as in the name of a file share: fe80--1s4.ipv6-literal.net is fe80::1%4.
 */
QV_EXPORT int QVgetaddrinfo(const char* name, const char* service, const struct addrinfo* hints,
                            struct addrinfo** result);

/* Frees a chain from QVgetaddrinfo, and no other. Null is allowed. */
QV_EXPORT void QVfreeaddrinfo(struct addrinfo* info);

QV_END_DECLS

#endif
