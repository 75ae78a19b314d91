/*
 * Diagnostics: trace, alert, assertion.
 */
#ifndef QVCORE6_DIAGNOSTICS_H
#define QVCORE6_DIAGNOSTICS_H

#include <qvcore6/base.h>

#define QV_ALERT_MESSAGE_BOX 1u
#define QV_ALERT_BREAK 2u
#define QV_ALERT_WAIT 4u
#define QV_ALERT_EVENT_LOG 8u

QV_BEGIN_DECLS

QV_EXPORT QVRESULT QVErrorAlertSetMethod(uint32_t method);
QV_EXPORT void QVErrorAlert(uint32_t method, const QVWChar* title, const QVWChar* format, ...);
QV_EXPORT void QVTrace(const QVWChar* format, ...);
QV_EXPORT void QVAssert(const char* expression, const char* file, int32_t line);

QV_END_DECLS

#endif
