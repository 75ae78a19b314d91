// Two pages with an unreadable one behind them, for code that reads in blocks.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <new>

namespace qv::test
{

class GuardedPages
{
public:
    GuardedPages() : m_page(static_cast<std::size_t>(sysconf(_SC_PAGESIZE)))
    {
        void* const pages =
            mmap(nullptr, 3 * m_page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED) {
            throw std::bad_alloc();
        }
        m_begin = static_cast<char*>(pages);
        mprotect(m_begin + 2 * m_page, m_page, PROT_NONE);
    }
    ~GuardedPages() { munmap(m_begin, 3 * m_page); }
    GuardedPages(const GuardedPages&) = delete;
    GuardedPages& operator=(const GuardedPages&) = delete;

    // Units in front of the unreadable page, and in front of the border between the two others.
    template <class Unit> Unit* FromEnd(std::size_t units) const
    {
        return reinterpret_cast<Unit*>(m_begin + 2 * m_page) - units;
    }
    template <class Unit> Unit* FromBorder(std::size_t units) const
    {
        return reinterpret_cast<Unit*>(m_begin + m_page) - units;
    }

private:
    std::size_t m_page;
    char* m_begin;
};

} // namespace qv::test
