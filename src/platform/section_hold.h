// Holds a critical section from construction to the end of the scope, unless it is kept for longer.
#pragma once

#include "platform/critical_section.h"

namespace qv::platform
{

class SectionHold
{
public:
    explicit SectionHold(CRITICAL_SECTION* section) : m_section(section)
    {
        EnterCriticalSection(section);
    }
    // Never waits; to be asked whether it holds the section.
    static SectionHold Try(CRITICAL_SECTION* section)
    {
        const bool taken = TryEnterCriticalSection(section) != kFalse;
        return SectionHold(taken ? section : nullptr, Taken());
    }
    ~SectionHold()
    {
        if (m_section != nullptr) {
            LeaveCriticalSection(m_section);
        }
    }
    SectionHold(const SectionHold&) = delete;
    SectionHold& operator=(const SectionHold&) = delete;

    explicit operator bool() const { return m_section != nullptr; }
    // Somebody else leaves the section.
    void Keep() { m_section = nullptr; }

private:
    struct Taken
    {};
    SectionHold(CRITICAL_SECTION* section, Taken /*alreadyEntered*/) : m_section(section) {}

    CRITICAL_SECTION* m_section;
};

} // namespace qv::platform
