#include "platform/held_process.h"

#include <utility>

#include "platform/descriptor_handle.h"
#include "platform/error.h"
#include "platform/exit_code.h"
#include "platform/orphans.h"
#include "platform/section_hold.h"
#include "platform/thread.h"

namespace qv::platform
{

namespace
{

// Counts the forks that led to this process: uses of other generations ended with their threads.
constinit std::uint32_t g_generation = 0;

} // namespace

constinit CRITICAL_SECTION g_processesLock{};

void ProcessRecord::Set(Descriptor process, DWORD id, bool isChild)
{
    m_process = process;
    m_id = id;
    m_isChild = isChild;
    m_generation = g_generation;
}

bool ProcessRecord::IsInPlace() const
{
    const RecordHold<DescriptorRecord> found = FindRecord(m_process);
    return !m_isClosed && found && &*found == this && IsProcess(m_process);
}

DWORD ProcessRecord::BeginUse()
{
    if (m_isGivenUp) {
        return ERROR_INVALID_HANDLE;
    }
    if (std::exchange(m_generation, g_generation) != g_generation) {
        m_uses = 0;
        m_isChild = false;
    }
    ++m_uses;
    return ERROR_SUCCESS;
}

void ProcessRecord::EndUse()
{
    if (--m_uses == 0 && m_isGivenUp) {
        if (IsInPlace()) {
            CloseDescriptor(m_process);
        }
        m_isClosed = true;
        TakeRecord(m_process, *this);
    }
}

DWORD ProcessRecord::TakeCode(DWORD* code)
{
    if (m_isGivenUp) {
        return ERROR_INVALID_HANDLE;
    }
    if (!m_hasEnded) {
        if (const DWORD error = TakeExitCode(m_process, &m_exitCode)) {
            return error;
        }
        m_hasEnded = m_exitCode != STILL_ACTIVE;
    }
    *code = m_exitCode;
    return ERROR_SUCCESS;
}

DWORD ProcessRecord::GiveUp()
{
    DWORD code = 0;
    if (const DWORD error = TakeCode(&code)) {
        return error; // also for a descriptor that the host has closed by itself
    }
    m_isGivenUp = true;
    if (m_isChild && code == STILL_ACTIVE) {
        Orphans::Add(*this);
    }
    return ERROR_SUCCESS;
}

DWORD ProcessRecord::Close(Descriptor descriptor)
{
    const SectionHold locked(&g_processesLock);
    if (!IsInPlace()) {
        TakeRecord(descriptor, *this);
        return CloseDescriptor(descriptor);
    }
    if (const DWORD error = BeginUse()) {
        return error;
    }
    const DWORD error = GiveUp();
    EndUse();
    return error;
}

HeldProcess::HeldProcess(Descriptor process)
    : m_process(process), m_record(FindRecordOf<ProcessRecord>(process))
{
    if (IsKnown()) {
        const SectionHold locked(&g_processesLock);
        m_error = m_record->BeginUse();
    }
}

HeldProcess& HeldProcess::operator=(HeldProcess&& other) noexcept
{
    std::swap(m_process, other.m_process);
    std::swap(m_error, other.m_error);
    m_record = std::move(other.m_record);
    return *this;
}

void HeldProcess::End()
{
    if (IsKnown() && m_error == ERROR_SUCCESS) {
        const SectionHold locked(&g_processesLock);
        m_record->EndUse();
    }
}

DWORD HeldProcess::State() const
{
    if (!IsKnown() || m_error != ERROR_SUCCESS) {
        return m_error;
    }
    const SectionHold locked(&g_processesLock);
    return m_record->m_isGivenUp ? ERROR_INVALID_HANDLE : ERROR_SUCCESS;
}

bool HeldProcess::IsChild() const
{
    if (!IsKnown()) {
        return false;
    }
    const SectionHold locked(&g_processesLock);
    return m_record->m_isChild && m_record->IsInPlace();
}

DWORD HeldProcess::TakeCode(DWORD* code)
{
    constexpr Descriptor kOwnProcess = -1;
    if (m_error != ERROR_SUCCESS) {
        return m_error;
    }
    if (IsKnown()) {
        const SectionHold locked(&g_processesLock);
        return m_record->TakeCode(code);
    }
    *code = STILL_ACTIVE;
    return m_process == kOwnProcess ? ERROR_SUCCESS : TakeExitCode(m_process, code);
}

DWORD HeldProcess::GiveUp()
{
    if (m_error != ERROR_SUCCESS) {
        return m_error;
    }
    if (IsKnown()) {
        const SectionHold locked(&g_processesLock);
        return m_record->GiveUp();
    }
    return CloseHandle(m_process) != kFalse ? ERROR_SUCCESS : GetLastError();
}

void HoldProcesses()
{
    EnterCriticalSection(&g_processesLock);
    Orphans::JoinEndedThread();
}

void ReleaseProcesses(bool isForkedChild)
{
    if (isForkedChild) {
        ++g_generation;
        Orphans::ForgetInChild();
    }
    LeaveCriticalSection(&g_processesLock);
}

} // namespace qv::platform
