/* A program in C and in C++ against an installed copy; its store is in QVCORE6_STATE_DIR. */
#include <qvcore6/qvcore6.h>

#include <string.h>

int main(void)
{
    const QVWChar key[] = {'K', 'e', 'y', 0};
    const char written[] = "twelve bytes";
    char read[64];
    uint32_t type = 0;
    uint32_t size = sizeof read;
    QVMutex mutex;
    if (QVMutexCreate("consumer", 0, &mutex) != S_OK || QVMutexDestroy(mutex) != S_OK) {
        return 1;
    }
    if (QVRegistrySetValue(QV_HKEY_USER, key, key, QV_REGTYPE_BINARY, written, sizeof written) <
            0 ||
        QVRegistryGetValue(QV_HKEY_USER, key, key, &type, read, &size) < 0) {
        return 2;
    }
    return size == sizeof written && memcmp(read, written, size) == 0 ? 0 : 3;
}
