/* The example of the header, as C. */
#include <qvcore6/str.h>
#include <stdio.h>

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "line %d: %s\n", __LINE__, #condition);                                \
            return 1;                                                                              \
        }                                                                                          \
    } while (0)

int main(void)
{
    char path[16];
    QVStrNZCpyA(path, sizeof path, "/var/", UINT32_MAX);
    QVStrNZCatA(path, sizeof path, "lib/services", UINT32_MAX);
    CHECK(QVStrCmpA(path, "/var/lib/servic") == 0);

    char joined[16] = "";
    char* state = path;
    for (char* part; (part = QVStrTokA(&state, "/")) != NULL;) {
        QVStrCatA(joined, part);
    }
    CHECK(QVStrCmpA(joined, "varlibservic") == 0);

    QVWChar wide[8];
    CHECK(QVAnsiToUnicode(wide, joined, 8) == 8);
    CHECK(QVStrNCmpW(wide, u"varlibse", 8) == 0);
    return 0;
}
