/* The examples of component.h and module.h as a C program: they compile, and do what they say. */
#include <qvcore6/component.h>
#include <qvcore6/module.h>
#include <qvcore6/result.h>

#include <stdio.h>
#include <string.h>

static int Require(int holds, const char* what)
{
    if (!holds) {
        fprintf(stderr, "does not hold: %s\n", what);
    }
    return holds ? 0 : 1;
}

static int UseLibrary(void)
{
    QVLibrary library;
    void* symbol;
    if (QVLibOpen(u"" QV_TEST_LIBRARY, &library) < 0) {
        return 1;
    }
    int answer = 0;
    if (QVLibGetSymbol(library, u"TestAnswer", &symbol) >= 0) {
        int (*function)(void);
        memcpy(&function, &symbol, sizeof function);
        answer = function();
    }
    return Require(answer == 42, "a function of the library is found and called") +
           Require(QVLibClose(library) == S_OK, "the library is closed");
}

static int CreateMissingObject(void)
{
    IQVUnknown* object;
    if (QVComCreateObjectByProgID(u"Acme.Filter", NULL, &QV_IID_UNKNOWN, (void**)&object) < 0) {
        return 0;
    }
    IQVUnknown_Release(object);
    return Require(0, "a class that nobody registered is refused");
}

/* An object in C, called through the exports that take any object. */

static uint32_t count = 1;

static QVRESULT QueryInterface(IQVUnknown* object, const GUID* iid, void** objectOut)
{
    *objectOut = QVComIsEqualGUID(iid, &QV_IID_UNKNOWN) ? object : NULL;
    return *objectOut != NULL ? S_OK : E_INVALIDARG;
}

static uint32_t AddRef(IQVUnknown* object)
{
    (void)object;
    return ++count;
}

static uint32_t Release(IQVUnknown* object)
{
    (void)object;
    return --count;
}

static int CallObject(void)
{
    static const IQVUnknownTable table = {QueryInterface, AddRef, Release};
    IQVUnknown object = {&table};
    void* out = NULL;
    return Require(IQVUnknown_AddRef(&object) == 2, "AddRef reaches the object") +
           Require(IQVUnknown_Release(&object) == 1, "Release reaches the object") +
           Require(IQVUnknown_QueryInterface(&object, &QV_IID_UNKNOWN, &out) == S_OK &&
                       out == &object,
                   "QueryInterface gives the interface") +
           Require(IQVUnknown_QueryInterface(&object, &QV_IID_CLASS_FACTORY, &out) ==
                           E_INVALIDARG &&
                       out == NULL,
                   "QueryInterface passes a failure on");
}

int main(void)
{
    return UseLibrary() + CreateMissingObject() + CallObject();
}
