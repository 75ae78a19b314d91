/*
 * Security descriptors for named objects: one access mask for authenticated users, nobody else.
 *
 * A descriptor is memory of the caller's. It points to an access control list, a block of the
 * library's heap that the caller frees once the descriptor is no longer used. Named semaphores are
 * made with such a descriptor, so that the processes of all users of the machine can meet on them.
 *
 *     QVSecurityDescriptor descriptor;
 *     void* acl;
 *     if (QVWinBuildRestrictedSD(&descriptor, 0x1F0003, &acl) >= 0) {
 *         ... hand the descriptor to what makes the object ...
 *     }
 *     QVWinFreeRestrictedSD(acl);
 *
 * There is no state behind these functions: any thread may call them at any time.
 */
#ifndef QVCORE6_SECURITY_H
#define QVCORE6_SECURITY_H

#include <qvcore6/base.h>

/* Room for a descriptor. Its content is the library's; zeros are no descriptor. */
typedef struct QVSecurityDescriptor
{
    void* m_opaque[5];
} QVSecurityDescriptor;

QV_BEGIN_DECLS

/*
 * Fills the descriptor, whatever was in it: accessMask (rights as the platform numbers them, such
 * as SEMAPHORE_ALL_ACCESS 0x1F0003) for S-1-5-11, Authenticated Users, and no other entry.
 * *aclOut receives the list that the descriptor points to and that must outlive it; null after a
 * failure. The descriptor may be copied; the copies share the list.
 * S_OK; E_OUTOFMEMORY. No argument may be null.
 */
QV_EXPORT QVRESULT QVWinBuildRestrictedSD(QVSecurityDescriptor* securityDescriptor,
                                          uint32_t accessMask, void** aclOut);

/* Frees a list. Null is allowed, so what a failed build left may be handed in as it is. */
QV_EXPORT void QVWinFreeRestrictedSD(void* acl);

QV_END_DECLS

#endif
