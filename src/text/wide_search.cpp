#include "text/wide_search.h"

#include <algorithm>
#include <functional>

#include "text/wide_units.h"

namespace qv::core
{

namespace
{

bool SplitsPair(const QVWChar* text, const QVWChar* begin, const QVWChar* end)
{
    return (begin != text && IsLead(begin[-1]) && IsTrail(*begin)) ||
           (IsLead(end[-1]) && IsTrail(*end));
}

// A text whose length need not be known as long as what is looked for is found early.
class GrowingText
{
public:
    explicit GrowingText(const QVWChar* text) : m_text(text) {}

    bool HasUnits(std::size_t count)
    {
        if (count > m_known) {
            constexpr std::size_t ahead = 1024;
            m_known += AsciiKernels::LengthWithin(m_text + m_known, count - m_known + ahead);
        }
        return count <= m_known;
    }

private:
    const QVWChar* m_text;
    std::size_t m_known = 0;
};

struct Suffix
{
    std::size_t start;
    std::size_t period;
};

// The suffix that sorts last, with units in rising order or in falling order, and its period.
template <class Before> Suffix MaximalSuffix(const QVWChar* text, std::size_t length, Before before)
{
    Suffix best{0, 1};
    std::size_t same = 0;
    for (std::size_t other = 1; other + same < length;) {
        const QVWChar a = text[best.start + same];
        const QVWChar b = text[other + same];
        if (a == b) {
            ++same;
            if (same == best.period) {
                other += same;
                same = 0;
            }
        } else if (before(b, a)) {
            other += same + 1;
            same = 0;
            best.period = other - best.start;
        } else {
            best = {other, 1};
            ++other;
            same = 0;
        }
    }
    return best;
}

// Two-way matching (Crochemore and Perrin): the wanted text is cut where the period around the cut
// is that of the whole. Its right part is compared first; how far that matches is how far the next
// place may be away. Needs no memory, and looks at each unit a few times at most.
const QVWChar* FindTwoWay(const QVWChar* text, const QVWChar* from, const QVWChar* wanted,
                          Pairs pairs)
{
    const std::size_t length = WideLength(wanted);
    const Suffix rising = MaximalSuffix(wanted, length, std::less<>());
    const Suffix falling = MaximalSuffix(wanted, length, std::greater<>());
    const auto [cut, period] = rising.start > falling.start ? rising : falling;

    // In a periodic text, what matched before a step of one period still matches after it.
    const bool isPeriodic = std::equal(wanted, wanted + cut, wanted + period);
    const std::size_t step = isPeriodic ? period : std::max(cut, length - cut) + 1;
    const std::size_t keptByStep = isPeriodic ? length - period : 0;

    GrowingText rest(from);
    std::size_t kept = 0;
    for (std::size_t at = 0; rest.HasUnits(at + length);) {
        const QVWChar* const place = from + at;
        std::size_t right = std::max(cut, kept);
        while (right < length && wanted[right] == place[right]) {
            ++right;
        }
        if (right < length) {
            at += right - cut + 1;
            kept = 0;
            continue;
        }
        std::size_t left = cut;
        while (left > kept && wanted[left - 1] == place[left - 1]) {
            --left;
        }
        if (left <= kept &&
            (pairs == Pairs::MaySplit || !SplitsPair(text, place, place + length))) {
            return place;
        }
        at += step;
        kept = keptByStep;
    }
    return nullptr;
}

} // namespace

const QVWChar* FindText(const QVWChar* text, const QVWChar* wanted, Pairs pairs)
{
    if (*wanted == 0) {
        return text;
    }
    // Most texts have few places that look like it. Where there are many, the other way is cheaper.
    std::size_t wasted = 0;
    for (const QVWChar* at = text; (at = FindUnit(at, *wanted)) != nullptr; ++at) {
        std::size_t same = 1;
        while (wanted[same] != 0 && at[same] == wanted[same]) {
            ++same;
        }
        if (wanted[same] == 0) {
            if (pairs == Pairs::MaySplit || !SplitsPair(text, at, at + same)) {
                return at;
            }
        } else if (at[same] == 0) {
            return nullptr;
        }
        wasted += same;
        if (wasted > 256 + 4 * static_cast<std::size_t>(at - text)) {
            return FindTwoWay(text, at + 1, wanted, pairs);
        }
    }
    return nullptr;
}

} // namespace qv::core
