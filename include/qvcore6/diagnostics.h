/*
 * Diagnostics: trace, alert, assertion, for what a developer or operator must see.
 *
 * A trace goes to the standard error descriptor. An alert goes where its method says: a question on
 * the terminal, the system's log, a break into a debugger, a wait for one. The process has a
 * standing method, at first none, so that an alert that names no method is silent. A failed
 * assertion is a trace and an alert.
 *
 *     QVErrorAlertSetMethod(QV_ALERT_EVENT_LOG);
 *     QVTrace(u"%hs: %u orders of %.2f on average\n", file, count, average);
 *     if (!SaveOrders(path)) {
 *         QVErrorAlert(0, u"Orders", u"%ls cannot be written", path);
 *     }
 *
 * Formats are wide and written as for C's wprintf, with these differences: %s and %c take 16-bit
 * text (QVWChar), %hs, %hc, %S and %C narrow text in the process's charset; I, I32 and I64 are
 * sizes of integers beside C's own (I: as wide as a pointer); %p shows all digits of a pointer, in
 * upper case; %n takes its pointer and stores nothing; the flag 0 fills up text as well; L shows a
 * long double with the range of a double. A precision is the most units (narrow text: bytes) that
 * are read, so a text that is as long needs no terminator. Null text shows as "(null)", and so does
 * a null format. A conversion that is no known one, or is cut by the format's end, is shown as it
 * stands, and so is all behind it: its arguments are not touched. As with printf, arguments that do
 * not fit the format are undefined behaviour.
 *
 * A formatted text has at most 511 units; the rest is cut, in front of a pair that does not fit.
 *
 * Any thread may call any function, also before the library's start and after its stop. Nothing
 * reports a failure. Traces and questions of a process take turns: while a question waits for its
 * answer, the traces of other threads wait too. A forked child never waits for its parent's
 * threads. Not for signal handlers.
 */
#ifndef QVCORE6_DIAGNOSTICS_H
#define QVCORE6_DIAGNOSTICS_H

#include <qvcore6/base.h>

/* Alert methods; any number of them together. Steps are taken in this order: */

/* Breaks into the debugger. A process that has none is ended by SIGTRAP. */
#define QV_ALERT_BREAK 2u
/* Writes an informational entry "Quillon Services: title: message" to the system's log (syslog). */
#define QV_ALERT_EVENT_LOG 8u
/*
 * Asks on the process's controlling terminal, and waits for the answer: Abort ends the process, by
 * SIGABRT and, if a handler returns, by exit code 3; Retry breaks into the debugger; Ignore goes
 * on. Without such a terminal, in the background, or when the terminal goes away or its input ends,
 * nobody is asked and the call goes on at once. What was typed before the question is thrown away.
 */
#define QV_ALERT_MESSAGE_BOX 1u
/*
 * Holds the calling thread until somebody outside, as a debugger, sets the 32-bit variable
 * qv::core::s_alertResume to another value than 0. It is cleared then. The wait keeps a processor
 * busy.
 */
#define QV_ALERT_WAIT 4u

QV_BEGIN_DECLS

/* Sets the process's standing method, 0 for none. S_OK. Other threads see it a little later. */
QV_EXPORT QVRESULT QVErrorAlertSetMethod(uint32_t method);

/*
 * Raises an alert by a method, by the standing one if the method is 0; returns at once and reads no
 * argument if that is 0 too. The title heads the question, shown as "title [Process ID 123]" and
 * cut at 63 units, and the log's entry. A null title is "QVErrorAlert" in the question and empty in
 * the log.
 */
QV_EXPORT void QVErrorAlert(uint32_t method, const QVWChar* title, const QVWChar* format, ...);

/*
 * Writes the calling thread's id as "[0x1a2b]" and then the text, as UTF-8, in one write each,
 * which no other trace of the process comes between. No line end is added. A pipe that nobody
 * reads, or a closed descriptor, loses the text and harms nothing (no SIGPIPE); a full one makes
 * the call wait.
 */
QV_EXPORT void QVTrace(const QVWChar* format, ...);

/*
 * Reports a failed assertion: traces it, and raises an alert by the standing method, or by
 * QV_ALERT_BREAK if there is none. Both texts are in the process's charset; null ones show as
 * "(null)". Call it when the expression does not hold.
 */
QV_EXPORT void QVAssert(const char* expression, const char* file, int32_t line);

QV_END_DECLS

#endif
