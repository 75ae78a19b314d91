#include <sys/mman.h>

#include <utility>

#include "platform/descriptor_handle.h"
#include "platform/error.h"
#include "platform/named_object.h"
#include "platform/no_cancellation.h"

namespace qv::platform
{

namespace
{

constinit NamedHeadHold* g_first = nullptr;

} // namespace

void NamedHeadHold::Close()
{
    if (m_head == nullptr) {
        return;
    }
    const KeepErrno keep;
    const NoCancellation noCancellation;
    {
        const NamedObjectsHold locked;
        Unlist();
        Discard();
    }
    RemoveIfLast();
}

void NamedHeadHold::Unlist()
{
    (m_previous != nullptr ? m_previous->m_next : g_first) = m_next;
    if (m_next != nullptr) {
        m_next->m_previous = m_previous;
    }
}

DWORD NamedHeadHold::Prepare(const ObjectFile& file, const NamedFacts& /*facts*/)
{
    if (m_slotKind == Slot::Own) {
        if (const DWORD error = file.TakeSlot(&m_slot)) {
            return error;
        }
    }
    m_head = file.MapHead();
    return m_head != nullptr ? ERROR_SUCCESS : ERROR_OUTOFMEMORY;
}

void NamedHeadHold::Discard()
{
    munmap(std::exchange(m_head, nullptr), kNamedHeadSize);
}

void NamedHeadHold::Keep(ObjectFile&& file)
{
    // The mapping alone holds the file, and its locks: there is no descriptor that could run out,
    // or that a host which closes all that it does not know could give to another file.
    CloseDescriptor(file.Release());
    m_next = g_first;
    m_previous = nullptr;
    if (g_first != nullptr) {
        g_first->m_previous = this;
    }
    g_first = this;
}

bool NamedHeadHold::IsSlotTaken(std::uint32_t slot) const
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    const NamedObjectsHold locked; // a fork would copy the open file
    ObjectFile file;
    return file.Open(Path()) != ERROR_SUCCESS || file.IsSlotTaken(slot);
}

void CloseNamedObjects()
{
    while (g_first != nullptr) {
        g_first->Close();
    }
}

void ForgetOwnSlots()
{
    for (NamedHeadHold* hold = g_first; hold != nullptr; hold = hold->m_next) {
        if (hold->m_slotKind == NamedHeadHold::Slot::Own) {
            hold->Unlist();
            hold->Discard();
        }
    }
}

} // namespace qv::platform
