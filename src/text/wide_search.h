// The search for a wide text in another, in time that grows with their lengths alone.
#pragma once

#include <qvcore6/base.h>

namespace qv::core
{

enum class Pairs
{
    MaySplit,
    StayWhole // what starts or ends inside a surrogate pair is not found
};

// The first occurrence of a terminated text, or null. The empty one is found at the start.
const QVWChar* FindText(const QVWChar* text, const QVWChar* wanted, Pairs pairs);

} // namespace qv::core
