// The cached classes, ordered by the 16 bytes of their GUIDs in memory, first byte most
// significant.
#pragma once

#include <qvcore6/component.h>

#include <bit>
#include <compare>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "component/factory_data.h"

namespace qv::core
{

// The bytes as two numbers, whose order is that of the bytes.
struct ClassKey
{
    explicit ClassKey(const GUID& clsid)
    {
        std::uint64_t halves[2];
        static_assert(sizeof halves == sizeof clsid);
        std::memcpy(halves, &clsid, sizeof halves);
        high = BigEndian(halves[0]);
        low = BigEndian(halves[1]);
    }
    friend auto operator<=>(const ClassKey&, const ClassKey&) = default;

    std::uint64_t high;
    std::uint64_t low;

private:
    static std::uint64_t BigEndian(std::uint64_t value)
    {
        return std::endian::native == std::endian::little ? __builtin_bswap64(value) : value;
    }
};

// A sorted array: the search of a hit allocates nothing and stays within few cache lines.
class FactoryMap
{
public:
    using Record = RefPtr<CQVFactoryData>;

    // Null if there is none.
    CQVFactoryData* Find(const ClassKey& key) const
    {
        const std::size_t at = LowerBound(key);
        return at < m_rows.size() && m_rows[at].key == key ? m_rows[at].record.Get() : nullptr;
    }

    // Makes room for one record more. Throws std::bad_alloc with the map as it was.
    void Reserve()
    {
        if (m_rows.size() == m_rows.capacity()) {
            m_rows.reserve(m_rows.empty() ? 8 : 2 * m_rows.size());
        }
    }

    // After Reserve. Gives the record that was there before.
    Record Store(const ClassKey& key, Record record) noexcept
    {
        const std::size_t at = LowerBound(key);
        if (at < m_rows.size() && m_rows[at].key == key) {
            std::swap(m_rows[at].record, record);
            return record;
        }
        m_rows.insert(m_rows.begin() + static_cast<std::ptrdiff_t>(at),
                      Row{key, std::move(record)});
        return Record();
    }

    // Drops the records in order.
    void Clear()
    {
        for (Row& row : m_rows) {
            row.record = Record();
        }
        m_rows.clear();
    }

    void Swap(FactoryMap& other) { m_rows.swap(other.m_rows); }

private:
    struct Row
    {
        ClassKey key;
        Record record;
    };

    // The first row that is not below the key. No branch on the comparison: a search that goes
    // another way each time would mispredict every second one.
    std::size_t LowerBound(const ClassKey& key) const
    {
        std::size_t first = 0;
        for (std::size_t count = m_rows.size(); count > 0;) {
            const std::size_t half = count / 2;
            const ClassKey& middle = m_rows[first + half].key;
            const bool below =
                middle.high < key.high || (middle.high == key.high && middle.low < key.low);
            first += below ? count - half : 0;
            count = half;
        }
        return first;
    }

    std::vector<Row> m_rows;
};

} // namespace qv::core
