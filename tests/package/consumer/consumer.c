/* A program in C against an installed copy. */
#include <qvcore6/qvcore6.h>

#include <stdio.h>

int main(void)
{
    QVMutex mutex;
    if (QVMutexCreate("consumer", 0, &mutex) != S_OK || QVMutexAcquire(mutex) != S_OK ||
        QVMutexRelease(mutex) != S_OK || QVMutexDestroy(mutex) != S_OK) {
        return 1;
    }
    if (QVResultFromNative(5) != E_ACCESSDENIED) {
        return 2;
    }
    puts("consumer.c: fine");
    return 0;
}
