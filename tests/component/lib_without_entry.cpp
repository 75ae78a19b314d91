// Links a component, whose entry point must not pass for one of its own.
#include <qvcore6/base.h>

extern "C"
{
    QV_EXPORT extern const int TestNumber;
    QV_EXPORT int TestAnswer();
}

const int TestNumber = 42;

int TestAnswer()
{
    return TestNumber;
}
