// The mutex class tree and the factory of all mutexes.
#pragma once

#include <qvcore6/mutex.h>

#include <string>

#include "frame/ref_counted.h"
#include "platform/critical_section.h"

struct QVLockStats;

// What a handle points to. The order of the operations is that of their table.
class IMutex : public CQVCoreRefCounted
{
public:
    virtual QVRESULT Acquire() = 0;
    virtual QVRESULT TryAcquire() = 0;
    virtual QVRESULT Release() = 0;
    virtual QVRESULT GetStats(QVLockStats* out) = 0;
    virtual void ResetStats() = 0;
    virtual std::int32_t AssertOwnership(std::int16_t expectOwned) = 0;
    virtual std::string GetName() = 0;
    virtual std::uint32_t GetFlags() = 0;
    virtual bool IsUntracked() = 0;
    virtual void* GetOSMutex() = 0;
};

class IMutexProvider : public CQVCoreRefCounted
{
public:
    virtual QVRESULT CreateMutex(const char* name, std::uint32_t flags, IMutex** out) = 0;
};

namespace qv::core
{

// Name and flags.
class CQVMutex : public IMutex
{
public:
    CQVMutex(const char* name, std::uint32_t flags) : m_flags(flags), m_name(name) {}

    std::string GetName() override { return m_name; }
    std::uint32_t GetFlags() override { return m_flags; }
    bool IsUntracked() override { return (m_flags & QV_MUTEX_UNTRACKED) != 0; }

protected:
    bool Has(std::uint32_t flags) const { return (m_flags & flags) == flags; }

private:
    std::uint32_t m_flags; // the effective ones, after the provider's correction
    std::string m_name;
};

class CQVMutexProvider : public IMutexProvider
{
public:
    QVRESULT CreateMutex(const char* name, std::uint32_t flags, IMutex** out) override;
};

} // namespace qv::core

// The plain mutex: the platform's lock with a name.
class CQVCoreMutexImpl : public qv::core::CQVMutex
{
public:
    CQVCoreMutexImpl(const char* name, std::uint32_t flags);
    ~CQVCoreMutexImpl() override;

    QVRESULT Acquire() override;
    QVRESULT TryAcquire() override;
    QVRESULT Release() override;
    QVRESULT GetStats(QVLockStats* out) override;
    void ResetStats() override;
    std::int32_t AssertOwnership(std::int16_t expectOwned) override;
    void* GetOSMutex() override;

protected:
    qv::platform::CRITICAL_SECTION m_criticalSection;
};
