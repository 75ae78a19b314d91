#include "platform/mapping_views.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "platform/error.h"
#include "platform/mapping.h"
#include "platform/no_cancellation.h"
#include "platform/section_hold.h"

namespace qv::platform
{

namespace
{

struct View
{
    ~View()
    {
        if (isLast) {
            section->GiveUp();
        }
    }
    View* next = nullptr;
    void* base = nullptr;
    std::size_t length = 0;
    int rights = 0;
    RecordHold<SectionRecord> section{};
    bool isLast = false;
};

constexpr std::size_t kRows = 512;
constinit View* g_rows[kRows]{};

// Held while views come and go, with their mappings, and around a fork.
constinit CRITICAL_SECTION g_lock{};

// Where the view stands, or null would.
View** PlaceOf(const void* base)
{
    constexpr unsigned kPageBits = 12;
    View** place = &g_rows[(reinterpret_cast<std::uintptr_t>(base) >> kPageBits) % kRows];
    while (*place != nullptr && (*place)->base != base) {
        place = &(*place)->next;
    }
    return place;
}

std::unique_ptr<View> TakeFrom(View** place)
{
    std::unique_ptr<View> view(*place);
    if (view != nullptr) {
        *place = view->next;
        view->isLast = view->section->DropView();
    }
    return view;
}

// Past the C library: checkers of memory and of races, which put themselves in its place, would
// take it for new memory and for a write beside those who use it.
void MapAgain(void* base, std::size_t length, int rights, int file)
{
    constexpr int kFlags = MAP_SHARED | MAP_FIXED;
#ifdef SYS_mmap2
    constexpr long kUnit = 4096;
    syscall(SYS_mmap2, base, length, rights, kFlags, file, kNamedHeadSize / kUnit);
#else
    syscall(SYS_mmap, base, length, rights, kFlags, file, kNamedHeadSize);
#endif
}

} // namespace

void* SectionViews::Map(Descriptor section, RecordHold<SectionRecord> record, bool toWrite,
                        DWORD* error)
{
    const KeepErrno keep;
    const NoCancellation noCancellation;
    std::unique_ptr<View> view(new (std::nothrow) View{});
    if (view == nullptr) {
        *error = ERROR_OUTOFMEMORY;
        return nullptr;
    }
    std::unique_ptr<View> leftBehind; // goes after the lock
    const SectionHold locked(&g_lock);
    if (!record->m_isOpen || !record->IsWhole(section)) {
        *error = ERROR_INVALID_HANDLE;
        return nullptr;
    }
    const int rights = toWrite ? PROT_READ | PROT_WRITE : PROT_READ;
    const auto length = static_cast<std::size_t>(record->Size());
    void* const base = mmap(nullptr, length, rights, MAP_SHARED, section, kNamedHeadSize);
    if (base == MAP_FAILED) {
        // The first: beyond the limit of locked memory.
        *error = errno == EAGAIN ? ERROR_OUTOFMEMORY : ErrorFromErrno(errno);
        return nullptr;
    }
    // One that the host has unmapped by itself.
    leftBehind = TakeFrom(PlaceOf(base));
    record->AddView();
    view->base = base;
    view->length = length;
    view->rights = rights;
    view->section = std::move(record);
    *PlaceOf(base) = view.release();
    return base;
}

bool SectionViews::Unmap(const void* base)
{
    const KeepErrno keep;
    std::unique_ptr<View> view; // goes after the lock
    const SectionHold locked(&g_lock);
    view = TakeFrom(PlaceOf(base));
    if (view == nullptr) {
        return false;
    }
    // With the lock: a child must not be left with a mapping that it does not know of.
    munmap(view->base, view->length);
    return true;
}

bool SectionViews::CloseHandle(SectionRecord& section)
{
    const SectionHold locked(&g_lock);
    section.m_isOpen = false;
    return section.m_views != 0;
}

void SectionViews::Exchange(const SectionRecord& section, int file)
{
    const SectionHold locked(&g_lock);
    for (View* const row : g_rows) {
        for (View* view = row; view != nullptr; view = view->next) {
            if (&*view->section == &section) {
                // One that fails keeps what it has.
                MapAgain(view->base, view->length, view->rights, file);
            }
        }
    }
}

void HoldViews()
{
    EnterCriticalSection(&g_lock);
}

void ReleaseViews()
{
    LeaveCriticalSection(&g_lock);
}

void ForgetViews()
{
    for (View*& row : g_rows) {
        while (row != nullptr) {
            TakeFrom(&row);
        }
    }
}

} // namespace qv::platform
