/*
 * The whole interface of qvcore6.
 *
 * Each family has a header of its own, which opens with its model and an example; a program that
 * uses one or two families includes just those.
 */
#ifndef QVCORE6_QVCORE6_H
#define QVCORE6_QVCORE6_H

#include <qvcore6/address.h>
#include <qvcore6/base.h>
#include <qvcore6/component.h>
#include <qvcore6/condition.h>
#include <qvcore6/diagnostics.h>
#include <qvcore6/directory.h>
#include <qvcore6/encoding.h>
#include <qvcore6/event.h>
#include <qvcore6/file.h>
#include <qvcore6/gate.h>
#include <qvcore6/locale.h>
#include <qvcore6/lockstats.h>
#include <qvcore6/memory.h>
#include <qvcore6/module.h>
#include <qvcore6/mutex.h>
#include <qvcore6/option.h>
#include <qvcore6/process.h>
#include <qvcore6/registry.h>
#include <qvcore6/result.h>
#include <qvcore6/rwlock.h>
#include <qvcore6/security.h>
#include <qvcore6/semaphore.h>
#include <qvcore6/sharedmem.h>
#include <qvcore6/str.h>
#include <qvcore6/sysinfo.h>
#include <qvcore6/thread.h>
#include <qvcore6/time.h>
#include <qvcore6/utf16file.h>

#endif
