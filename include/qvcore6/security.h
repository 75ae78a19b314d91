/*
 * Security descriptors for named objects: one access mask for authenticated users, nothing else.
 */
#ifndef QVCORE6_SECURITY_H
#define QVCORE6_SECURITY_H

#include <qvcore6/base.h>

QV_BEGIN_DECLS

QV_EXPORT QVRESULT QVWinBuildRestrictedSD(void* securityDescriptor, uint32_t accessMask,
                                          void** aclOut);
QV_EXPORT void QVWinFreeRestrictedSD(void* acl);

QV_END_DECLS

#endif
