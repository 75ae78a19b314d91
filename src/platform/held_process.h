// Child processes that have been started here, and uses of their handles.
//
// The record of a child belongs to the number of its pidfd. Who uses the handle counts in it; who
// gives it up first wins, nobody gets at it afterwards, and the last use closes the descriptor. So
// the number stays taken while anybody works with it: nobody ever waits for a process that is not
// the one that he meant.
//
// A child that is given up while it runs becomes an orphan (orphans.h).
#pragma once

#include "platform/critical_section.h"
#include "platform/descriptor_record.h"
#include "platform/types.h"

namespace qv::platform
{

class ProcessRecord final : public DescriptorRecord
{
public:
    static constexpr DescriptorKind kKind = DescriptorKind::Process;

    ProcessRecord() : DescriptorRecord(kKind) {}

    // Before it is put into the table.
    void Set(Descriptor process, DWORD id, bool isChild);
    DWORD Id() const { return m_id; }
    DWORD Close(Descriptor descriptor) override;
    bool IsTakenByClose() const override { return true; }

private:
    friend class HeldProcess;
    friend class Orphans;

    ~ProcessRecord() override = default;

    // All of these with the lock held.
    // False once the number is another descriptor's, or nobody's, also by a close of the host's.
    bool IsInPlace() const;
    DWORD BeginUse();
    void EndUse();
    DWORD TakeCode(DWORD* code);
    DWORD GiveUp();

    Descriptor m_process = -1;
    DWORD m_id = 0;
    std::uint32_t m_generation = 0; // of the process in which the counts are right
    std::uint32_t m_uses = 0;
    bool m_isChild = false;
    bool m_hasEnded = false;
    bool m_isGivenUp = false;
    bool m_isClosed = false;  // the number is another's
    bool m_isWatched = false; // as an orphan
    DWORD m_exitCode = 0;
    ProcessRecord* m_nextOrphan = nullptr;
};

// A use of a process's handle, from construction on. Handles that come from elsewhere, as a pidfd
// of the host's, are served as the kernel serves them.
class HeldProcess
{
public:
    HeldProcess() = default;
    explicit HeldProcess(Descriptor process);
    HeldProcess(HeldProcess&& other) noexcept = default;
    HeldProcess& operator=(HeldProcess&& other) noexcept;
    ~HeldProcess() { End(); }

    Descriptor Number() const { return m_process; }
    // Made here, not elsewhere.
    bool IsKnown() const { return bool(m_record); }
    // Started by this process, and the handle has not been closed by other means.
    bool IsChild() const;
    DWORD Id() const { return IsKnown() ? m_record->Id() : 0; }
    // 0; 6 if the handle is not open or is given up.
    DWORD State() const;
    // STILL_ACTIVE or the code. Errors of State.
    DWORD TakeCode(DWORD* code);
    // 0; 6 for everybody but the first.
    DWORD GiveUp();

private:
    void End();

    Descriptor m_process = -1;
    DWORD m_error = 0;
    RecordHold<ProcessRecord> m_record;
};

// Held for what stands in the records and for the orphans, never while something waits for others.
extern CRITICAL_SECTION g_processesLock;

// Around a fork. A forked child has no children.
void HoldProcesses();
void ReleaseProcesses(bool isForkedChild);

} // namespace qv::platform
