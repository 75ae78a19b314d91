// A program in C++ against an installed copy; the store is the one that QVCORE6_STATE_DIR names.
#include <qvcore6/qvcore6.h>

#include <cstdio>
#include <cstring>

int main()
{
    const QVWChar* const key = u"Software\\Consumer";
    const char written[] = "twelve bytes";
    if (QVRegistrySetValue(QV_HKEY_USER, key, u"Text", QV_REGTYPE_BINARY, written,
                           sizeof(written)) < 0) {
        return 1;
    }
    char read[64];
    uint32_t type = 0;
    uint32_t size = sizeof(read);
    if (QVRegistryGetValue(QV_HKEY_USER, key, u"Text", &type, read, &size) < 0 ||
        size != sizeof(written) || std::memcmp(read, written, size) != 0) {
        return 2;
    }
    GUID parsed;
    if (QVComGUIDFromString(u"{00000000-0000-0000-C000-000000000046}", &parsed) < 0) {
        return 3;
    }
    std::puts("consumer.cpp: fine");
    return 0;
}
