#include <qvcore6/str.h>

#include "platform/wide_text.h"
#include "text/ascii_kernels.h"

using namespace qv::core;

namespace
{

// The locale is asked from the first unit above ASCII on.
template <Case to, class Unit> Unit* MapCase(Unit* text, Unit* (*mapRest)(Unit*))
{
    Unit* const rest = text + AsciiKernels::Fold<to>(text);
    if (*rest != 0) {
        mapRest(rest);
    }
    return text;
}

} // namespace

char* QVStrToLowerA(char* s)
{
    return MapCase<Case::Lower>(s, qv::platform::_strlwr);
}

QVWChar* QVStrToLowerW(QVWChar* s)
{
    return MapCase<Case::Lower>(s, qv::platform::_wcslwr);
}

char* QVStrToUpperA(char* s)
{
    return MapCase<Case::Upper>(s, qv::platform::_strupr);
}

QVWChar* QVStrToUpperW(QVWChar* s)
{
    return MapCase<Case::Upper>(s, qv::platform::_wcsupr);
}
