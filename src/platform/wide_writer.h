// Wide text that is written into a buffer from left to right and cut at its end.
#pragma once

#include <algorithm>
#include <climits>
#include <cstddef>
#include <string_view>

#include "platform/types.h"

namespace qv::platform
{

class WideWriter
{
public:
    // size counts the terminator and is above 0.
    WideWriter(WCHAR* buffer, std::size_t size)
        : m_begin(buffer), m_at(buffer), m_end(buffer + size - 1)
    {}

    // Nothing that is written from now on would be seen.
    bool IsCut() const { return m_isCut; }
    // For who writes at the end of the text in place, then calls Claim.
    WCHAR* At() { return m_at; }
    std::size_t Room() const { return static_cast<std::size_t>(m_end - m_at); }

    void Write(WCHAR unit) { Write(std::u16string_view(&unit, 1)); }
    void Write(std::u16string_view text)
    {
        if (text.empty()) {
            return;
        }
        const std::size_t fits = std::min(text.size(), Room());
        std::copy_n(text.data(), fits, m_at);
        m_at += fits;
        if (fits != text.size()) {
            Cut(text[fits]);
        }
    }

    void Fill(WCHAR unit, std::size_t count)
    {
        if (count == 0) {
            return;
        }
        const std::size_t fits = std::min(count, Room());
        std::fill_n(m_at, fits, unit);
        m_at += fits;
        if (fits != count) {
            Cut(unit);
        }
    }

    // Takes over a text that stands in place as far as it fits, behind a padding that is to be.
    void Claim(std::size_t units, std::size_t padding, WCHAR padUnit)
    {
        if (padding != 0) {
            const std::size_t shift = std::min(padding, Room());
            std::copy_backward(m_at, m_at + std::min(units, Room() - shift),
                               m_at + shift + std::min(units, Room() - shift));
            Fill(padUnit, padding);
        }
        const std::size_t fits = std::min(units, Room());
        m_at += fits;
        if (fits != units) {
            // Such a text has whole pairs only.
            Cut(fits != 0 && IsLead(m_at[-1]) ? kTrail : 0);
        }
    }

    int Finish()
    {
        *m_at = 0;
        return m_isCut ? -1 : static_cast<int>(std::min<std::ptrdiff_t>(m_at - m_begin, INT_MAX));
    }

private:
    static constexpr WCHAR kTrail = 0xDC00;

    static bool IsLead(WCHAR unit) { return (unit & 0xFC00) == 0xD800; }
    static bool IsTrail(WCHAR unit) { return (unit & 0xFC00) == kTrail; }

    // The text goes on with that unit: the first half of a pair does not stay alone.
    void Cut(WCHAR next)
    {
        if (!m_isCut && IsTrail(next) && m_at != m_begin && IsLead(m_at[-1])) {
            --m_at;
        }
        m_end = m_at;
        m_isCut = true;
    }

    WCHAR* m_begin;
    WCHAR* m_at;
    WCHAR* m_end;
    bool m_isCut = false;
};

} // namespace qv::platform
