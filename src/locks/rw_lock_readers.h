// Which thread holds how many reads of a reader-writer lock. Meant for few threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qv::core
{

class RWLockReaders
{
public:
    struct Entry
    {
        std::uint32_t thread;
        std::int32_t count; // at least 1
    };

    RWLockReaders() { m_entries.reserve(kFirstCapacity); }

    // Null if the thread has no entry.
    Entry* Find(std::uint32_t thread)
    {
        for (Entry& entry : m_entries) {
            if (entry.thread == thread) {
                return &entry;
            }
        }
        return nullptr;
    }
    // Makes sure that the next entry finds room. Throws, with nothing changed, without memory.
    void MakeRoom()
    {
        if (m_entries.size() == m_entries.capacity()) [[unlikely]] {
            m_entries.reserve(m_entries.capacity() + m_entries.capacity() / 2);
        }
    }
    // The thread must have no entry, and there must be room.
    void Append(std::uint32_t thread, std::int32_t count) { m_entries.push_back({thread, count}); }
    std::size_t IndexOf(const Entry* entry) const
    {
        return static_cast<std::size_t>(entry - m_entries.data());
    }
    void Remove(std::size_t index) { m_entries.erase(At(index)); }
    // Takes the removal of a thread's last read back.
    void PutBack(std::size_t index, std::uint32_t thread)
    {
        m_entries.insert(At(index), {thread, 1});
    }
    // For the only thread that can have an entry: the reads that it keeps, 0 for none. Found by its
    // place, as the thread may have another id than at its first read, in a forked child. Never
    // without room: as nobody else has an entry, the first capacity is enough.
    void SetOnly(std::uint32_t thread, std::int32_t count)
    {
        m_entries.clear();
        if (count != 0) {
            Append(thread, count);
        }
    }

    // Whether nobody but this thread, which must be one, holds a read.
    bool IsOnlyReader(std::uint32_t thread) const
    {
        return thread != 0 &&
               (m_entries.empty() || (m_entries.size() == 1 && m_entries[0].thread == thread));
    }

private:
    static constexpr std::size_t kFirstCapacity = 8;

    std::vector<Entry>::iterator At(std::size_t index)
    {
        return m_entries.begin() + static_cast<std::ptrdiff_t>(index);
    }

    std::vector<Entry> m_entries; // grows by half, never shrinks
};

} // namespace qv::core
