#include "text/encoding_pool.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <string_view>

namespace qv::core
{

// By name and character, so that a kept converter needs nothing but a reset.
struct PooledConverter::Kept
{
    static constexpr std::size_t kLongestName = 47;

    bool IsFor(std::u16string_view wanted, int32_t character) const
    {
        return substitutionChar == character && wanted == name;
    }

    QVWChar name[kLongestName + 1] = {};
    int32_t substitutionChar = 0;
    QVEncConverter converter;
};

namespace
{

using Kept = PooledConverter::Kept;

// One for each hash. Whoever takes one out owns it, and whoever puts one in closes what was there:
// no lock, and nothing for a fork to wait for.
constinit std::array<std::atomic<Kept*>, 16> g_kept{};

std::atomic<Kept*>& Slot(std::u16string_view name, int32_t character)
{
    auto hash = static_cast<std::uint32_t>(character);
    for (const QVWChar unit : name) {
        hash = hash * 31 + unit;
    }
    return g_kept[(hash ^ hash >> 8) % g_kept.size()];
}

void CloseKept(Kept* kept)
{
    if (kept != nullptr) {
        kept->converter.Close();
        delete kept;
    }
}

} // namespace

PooledConverter::PooledConverter(const QVWChar* encodingName, int32_t substitutionChar)
{
    const std::u16string_view name =
        encodingName != nullptr ? std::u16string_view(encodingName) : std::u16string_view();
    // The platform's default may be another the next time.
    const bool isKept = !name.empty() && name.size() <= Kept::kLongestName;
    if (isKept) {
        m_kept.reset(Slot(name, substitutionChar).exchange(nullptr, std::memory_order_acquire));
        if (m_kept != nullptr && m_kept->IsFor(name, substitutionChar)) {
            m_converter = m_kept->converter;
            return;
        }
        CloseKept(m_kept.release());
    }
    const bool isNamed = m_converter.Open(encodingName);
    m_result = m_converter.SetSubstitutionChar(substitutionChar);
    // One that stands in for another is not kept: memory may have been short for once.
    if (isKept && isNamed && m_result >= 0) {
        m_kept.reset(new (std::nothrow) Kept);
    }
    if (m_kept != nullptr) {
        std::copy(name.begin(), name.end(), m_kept->name);
        m_kept->substitutionChar = substitutionChar;
        m_kept->converter = m_converter;
    }
}

PooledConverter::~PooledConverter()
{
    if (m_kept == nullptr) {
        m_converter.Close();
        return;
    }
    m_converter.Reset();
    std::atomic<Kept*>& slot = Slot(m_kept->name, m_kept->substitutionChar);
    CloseKept(slot.exchange(m_kept.release(), std::memory_order_acq_rel));
}

void EmptyEncodingPool()
{
    for (std::atomic<Kept*>& slot : g_kept) {
        CloseKept(slot.exchange(nullptr, std::memory_order_acquire));
    }
}

} // namespace qv::core
