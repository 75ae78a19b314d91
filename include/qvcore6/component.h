/*
 * Components: objects behind interfaces, classes named by GUIDs, and the cache of class objects.
 *
 * An object is reached through interfaces: its first word points to a table of operations that
 * starts with QueryInterface, AddRef and Release. In C++ an interface is an abstract class without
 * a virtual destructor, in C a structure whose first member is the table; the two are the same in
 * memory, so a component may be written in either.
 *
 * A class is named by a GUID and lives in a shared library that exports DllGetClassObject. Two
 * values under QV_HKEY_CLASSES register it (see registry.h), both the default value of their key:
 *
 *     CLSID\{...}\InprocServer32    path of the library, for QVLibOpen
 *     Some.ProgID\CLSID             text of the GUID, so that the class also has a readable name
 *
 * The first request for a class loads its library and keeps the class object; later requests cost
 * one search and one QueryInterface. The cache holds on to class objects and libraries until
 * QVComFlushFactoryCache.
 *
 *     void* object;
 *     if (QVComCreateObjectByProgID(u"Acme.Filter", NULL, &QV_IID_UNKNOWN, &object) < 0) {
 *         return;
 *     }
 *     IQVUnknown_Release((IQVUnknown*)object);
 *
 * Any thread may call any function. Class look-ups run one at a time, also those that hit the
 * cache: a library's load routine, DllGetClassObject and a class object's QueryInterface run inside
 * one. They may look up further classes on the same thread, and must not wait for another thread
 * that does. The system's loader runs load and unload routines under a lock of its own: a routine
 * of a library that no look-up loads must not look up classes while another thread may do so. In a
 * process that was forked while another thread was loading a class or flushing the cache, the
 * functions that look up classes answer E_FAIL.
 */
#ifndef QVCORE6_COMPONENT_H
#define QVCORE6_COMPONENT_H

#include <qvcore6/base.h>

/*
 * 16 bytes that name a class or an interface, in the layout of RFC 4122's fields with the first
 * three in the machine's byte order.
 */
typedef struct GUID
{
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
} GUID;

/* {00000000-0000-0000-C000-000000000046}: IQVUnknown, which every object has. */
static const GUID QV_IID_UNKNOWN = {
    0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
/* {00000001-0000-0000-C000-000000000046}: IQVClassFactory, which every class object has. */
static const GUID QV_IID_CLASS_FACTORY = {
    0x00000001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

#ifdef __cplusplus

/*
 * The head of every interface. A class that implements it counts its references, destroys itself in
 * the Release that reaches 0, and is declared final (or has a virtual destructor, which the table
 * then carries behind the operations).
 */
struct IQVUnknown
{
    /*
     * The object's interface with that IID, counted, in *objectOut. S_OK; a failure of the
     * component's own, with null in *objectOut.
     */
    virtual QVRESULT QueryInterface(const GUID* iid, void** objectOut) = 0;
    /* Both give the new count. */
    virtual uint32_t AddRef() = 0;
    virtual uint32_t Release() = 0;

protected:
    ~IQVUnknown() = default;
};

/* A class object: makes the objects of one class. */
struct IQVClassFactory : IQVUnknown
{
    /*
     * Makes an object and gives its interface with that IID, counted. outer is what the caller of
     * QVComCreateObject handed in: null, or the object that is to contain the new one.
     */
    virtual QVRESULT CreateInstance(IQVUnknown* outer, const GUID* iid, void** objectOut) = 0;

protected:
    ~IQVClassFactory() = default;
};

#else

/* The same in C: an object starts with a pointer to its table. */
typedef struct IQVUnknown IQVUnknown;
typedef struct IQVUnknownTable
{
    QVRESULT (*QueryInterface)(IQVUnknown* object, const GUID* iid, void** objectOut);
    uint32_t (*AddRef)(IQVUnknown* object);
    uint32_t (*Release)(IQVUnknown* object);
} IQVUnknownTable;
struct IQVUnknown
{
    const IQVUnknownTable* table;
};

typedef struct IQVClassFactory IQVClassFactory;
typedef struct IQVClassFactoryTable
{
    QVRESULT (*QueryInterface)(IQVClassFactory* object, const GUID* iid, void** objectOut);
    uint32_t (*AddRef)(IQVClassFactory* object);
    uint32_t (*Release)(IQVClassFactory* object);
    QVRESULT(*CreateInstance)
    (IQVClassFactory* object, IQVUnknown* outer, const GUID* iid, void** objectOut);
} IQVClassFactoryTable;
struct IQVClassFactory
{
    const IQVClassFactoryTable* table;
};

#endif

QV_BEGIN_DECLS

/*
 * What a component's library exports under the name "DllGetClassObject": gives the class object of
 * clsid, or another interface of it, counted, in *objectOut, and S_OK. A class that the library
 * does not have is REGDB_E_CLASSNOTREG. A failure leaves null in *objectOut. The class object
 * outlives every object that it made, and its first interface answers QueryInterface for all
 * others, since the cache keeps that one.
 */
typedef QVRESULT (*QVDllGetClassObject)(const GUID* clsid, const GUID* iid, void** objectOut);

/* Straight calls of an object's operations, for callers without the tables. */
QV_EXPORT QVRESULT IQVUnknown_QueryInterface(IQVUnknown* object, const GUID* iid, void** objectOut);
QV_EXPORT uint32_t IQVUnknown_AddRef(IQVUnknown* object);
QV_EXPORT uint32_t IQVUnknown_Release(IQVUnknown* object);

/*
 * A new random GUID (RFC 4122, version 4).
 * S_OK; E_FAIL without a source of random numbers, with *guidOut as it was.
 */
QV_EXPORT QVRESULT QVComGenerateGUID(GUID* guidOut);

/* The units that the text of a GUID takes, with its terminator. */
#define QV_GUID_TEXT_UNITS 39u

/*
 * Writes "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" in upper case. text has room for textUnits units;
 * below QV_GUID_TEXT_UNITS the text is cut and has no terminator. S_OK.
 */
QV_EXPORT QVRESULT QVComStringFromGUID(const GUID* guid, QVWChar* text, uint32_t textUnits);

/*
 * Reads the text of a GUID in either case, with or without braces. What follows the GUID (and its
 * closing brace, if there was an opening one) is not looked at.
 * S_OK; E_INVALIDARG, with *guidOut as it was.
 */
QV_EXPORT QVRESULT QVComGUIDFromString(const QVWChar* text, GUID* guidOut);

/* 1 if both are the same GUID, otherwise 0. */
QV_EXPORT int32_t QVComIsEqualGUID(const GUID* first, const GUID* second);

/*
 * -1, 0 or 1: a total order, by the last six bytes first, then bytes 8, 9, 6, 7, 4, 5, 0, 1, 2, 3
 * in memory, unsigned. It is not the order of the texts.
 */
QV_EXPORT int32_t QVComCompareGUID(const GUID* first, const GUID* second);

/*
 * The GUID of a class by its readable name, which has at most 253 units.
 * S_OK; REGDB_E_CLASSNOTREG if there is no such name; E_INVALIDARG if it is too long or its value
 * is no GUID; other failures of QVRegistryGetValue.
 */
QV_EXPORT QVRESULT QVComClassIDFromProgID(const QVWChar* progId, GUID* clsidOut);

/*
 * The class object of a class, or another interface of it, counted: the caller releases it.
 * *objectOut is null after a failure.
 * S_OK; REGDB_E_CLASSNOTREG if the registration is missing or cannot be read; the results of
 * QVLibOpen and QVLibGetSymbol if the library has no class objects; QV_E_NOT_INITIALIZED while the
 * library is unloading; what the component answers; E_FAIL if it succeeds without an interface or
 * throws, or if the library could not start in this process; E_OUTOFMEMORY.
 */
QV_EXPORT QVRESULT QVComGetClassObject(const GUID* clsid, const GUID* iid, void** objectOut);

/*
 * Makes an object of a class. outer is passed on to the class object; null for an object that
 * stands alone. If the class object cannot be had, *objectOut stays as it was.
 * The results of QVComGetClassObject and of the class object's CreateInstance.
 */
QV_EXPORT QVRESULT QVComCreateObject(const GUID* clsid, IQVUnknown* outer, const GUID* iid,
                                     void** objectOut);

/*
 * The same by the class's readable name.
 * The results of QVComClassIDFromProgID and QVComCreateObject.
 */
QV_EXPORT QVRESULT QVComCreateObjectByProgID(const QVWChar* progId, IQVUnknown* outer,
                                             const GUID* iid, void** objectOut);

/*
 * Releases every cached class object and closes its library. A library is unloaded while objects of
 * its classes live, unless something else holds it open: release them first.
 * S_OK; E_OUTOFMEMORY or E_FAIL if the cache is not usable in this process.
 */
QV_EXPORT QVRESULT QVComFlushFactoryCache(void);

/*
 * Blocks that pass between components: one allocates, another frees. Sizes in bytes, aligned for
 * every type; size 0 gives a valid block. Never mixed with malloc or QVMalloc.
 */

/* S_OK; E_OUTOFMEMORY, with null in *blockOut. */
QV_EXPORT QVRESULT QVComMalloc(uint32_t size, void** blockOut);

/*
 * Resizes *block, which may move; size 0 frees it and stores null; otherwise a null *block
 * allocates.
 * S_OK; E_OUTOFMEMORY, with *block and its bytes as they were.
 */
QV_EXPORT QVRESULT QVComRealloc(void** block, uint32_t size);

/* Frees a block; null is allowed. S_OK. */
QV_EXPORT QVRESULT QVComFree(void* block);

QV_END_DECLS

#endif
