/* A program in C against an installed copy. */
#include <qvcore6/qvcore6.h>

#include <stdio.h>

int main(void)
{
    QVMutex mutex;
    if (QVMutexCreate("consumer", 0, &mutex) != S_OK) {
        return 1;
    }
    if (QVMutexAcquire(mutex) != S_OK || QVMutexRelease(mutex) != S_OK ||
        QVMutexDestroy(mutex) != S_OK) {
        return 2;
    }
    if (QVResultFromNative(5) != E_ACCESSDENIED) {
        return 3;
    }
    puts("consumer.c: fine");
    return 0;
}
