// Loads the library before main, and leaves threads that stay inside it some time at the end.
#include <dlfcn.h>
#include <unistd.h>

[[gnu::constructor]] static void Load()
{
    dlopen(QV_TEST_LIBRARY, RTLD_NOW | RTLD_LOCAL);
}

[[gnu::destructor]] static void Linger()
{
    usleep(20000);
}
