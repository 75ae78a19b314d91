/* The header and a few calls, as C. */
#include <qvcore6/str.h>

int main(void)
{
    char path[16];
    QVStrNZCpyA(path, sizeof path, "/var/", UINT32_MAX);
    QVStrNZCatA(path, sizeof path, "lib/services", UINT32_MAX);
    QVWChar wide[8];
    return QVStrCmpA(path, "/var/lib/servic") != 0 || QVAnsiToUnicode(wide, path, 8) != 8 ||
           QVStrNCmpW(wide, u"/var/lib", 8) != 0;
}
