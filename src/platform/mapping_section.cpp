#include "platform/mapping_section.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/descriptor_handle.h"
#include "platform/error.h"
#include "platform/mapping.h"
#include "platform/mapping_views.h"
#include "platform/no_cancellation.h"

namespace qv::platform
{

namespace
{

// Those that hold their objects. Under the lock of the named objects.
constinit SectionRecord* g_first = nullptr;

} // namespace

// Listed still if the host has closed the handle by itself.
SectionRecord::~SectionRecord()
{
    GiveUp();
}

bool SectionRecord::HasFile(Descriptor descriptor, std::uint64_t leastSize) const
{
    ObjectFile file(descriptor);
    FileState state;
    const DWORD error = file.Look(&state);
    file.Release();
    return error == ERROR_SUCCESS && state.identity == m_identity && state.size >= leastSize;
}

DWORD SectionRecord::Close(Descriptor descriptor)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    RecordHold<DescriptorRecord> record; // goes after the lock
    DWORD error;
    bool hasViews;
    {
        const NamedObjectsHold locked;
        record = FindRecord(descriptor);
        if (!record || &*record != this) {
            return ERROR_INVALID_HANDLE; // another thread was quicker
        }
        hasViews = SectionViews::CloseHandle(*this);
        if (m_isListed && !hasViews && TryGiveUpHandle()) {
            LeaveList();
        }
        error = CloseDescriptor(descriptor);
        // Not before: another thread's close would take the descriptor for one without a record,
        // and close it beneath this one.
        TakeRecord(descriptor, *this);
    }
    if (!hasViews) {
        GiveUp();
    }
    return error;
}

// Not left to the destructor: in a forked child, another thread's hold on the record may stay for
// ever.
void SectionRecord::GiveUp()
{
    {
        const NamedObjectsHold locked;
        if (!m_isListed) {
            return;
        }
        LeaveList();
    }
    RemoveIfLast();
}

bool SectionRecord::TryGiveUpHandle() const
{
    // Of a number that has become another file's, only the number is of interest.
    if (!IsHandle(m_handle)) {
        return false;
    }
    ObjectFile file(m_handle);
    const bool isGivenUp = TryGiveUp(file, m_identity);
    file.Release();
    return isGivenUp;
}

DWORD SectionRecord::Prepare(const ObjectFile& file, const NamedFacts& facts)
{
    m_identity = facts.identity;
    m_size = facts.dataSize;
    const DWORD error = PutRecord(file.Number(), RecordHold<DescriptorRecord>(this));
    m_handle = error == ERROR_SUCCESS ? file.Number() : -1;
    return error;
}

void SectionRecord::Discard()
{
    TakeRecord(std::exchange(m_handle, -1));
}

void SectionRecord::Keep(ObjectFile&& file)
{
    file.Release(); // the handle
    m_isListed = true;
    m_next = g_first;
    m_previous = nullptr;
    if (g_first != nullptr) {
        g_first->m_previous = this;
    }
    g_first = this;
}

void SectionRecord::LeaveList()
{
    (m_previous != nullptr ? m_previous->m_next : g_first) = m_next;
    if (m_next != nullptr) {
        m_next->m_previous = m_previous;
    }
    m_isListed = false;
}

// If the handle does not do, through an open file without a lock of life. The handle first: of
// views that come meanwhile, those of before are found.
void SectionRecord::LetGo()
{
    LeaveList();
    if (m_isOpen && TryGiveUpHandle()) {
        return;
    }
    ObjectFile other;
    FileState state;
    if (other.Open(Path()) != ERROR_SUCCESS || other.Look(&state) != ERROR_SUCCESS ||
        state.identity != m_identity) {
        return;
    }
    if (m_isOpen && IsHandle(m_handle)) {
        dup3(other.Number(), m_handle, O_CLOEXEC);
    }
    SectionViews::Exchange(*this, other.Number());
}

void CloseSectionCopies(const Descriptor* kept)
{
    for (const SectionRecord* section = g_first; section != nullptr; section = section->m_next) {
        const Descriptor handle = section->m_handle;
        const bool isKept = kept != nullptr && std::find(kept, kept + 3, handle) != kept + 3;
        if (section->m_isOpen && !isKept && section->IsHandle(handle)) {
            // By the bare call: a race checker would take it for this process's.
            syscall(SYS_close, handle);
        }
    }
}

void EndSections()
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    for (;;) {
        ObjectPath path;
        {
            const NamedObjectsHold locked;
            if (g_first == nullptr) {
                return;
            }
            path = g_first->Path();
            g_first->LetGo();
        }
        SectionRecord::RemoveIfLast(path);
    }
}

} // namespace qv::platform
