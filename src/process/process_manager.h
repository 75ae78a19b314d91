// The children that have been started and neither reaped nor given up.
#pragma once

#include <qvcore6/base.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>

#include "locks/lock_guard.h"
#include "platform/critical_section.h"
#include "platform/held_process.h"

class CQVProcessManager
{
public:
    using Set = std::set<QVHandle>; // ordered by the handle's value
    using Node = Set::node_type;

    CQVProcessManager();

    // An entry in advance, so that a child that has been started can always be registered. Throws
    // E_OUTOFMEMORY if the table has no mutex.
    Node MakeNode() const;
    void Add(Node node, QVHandle process);
    void Detach(QVHandle process);
    // The exit code of a child that has ended, and the end of its handle. E_FAIL while it runs.
    std::uint32_t Reap(QVHandle process);
    std::uint32_t Join(QVHandle process);
    // Of the child that ends first. The caller's handle is written before it is reaped.
    std::uint32_t JoinChild(QVHandle& process);

    // Around a fork, by the thread that forks. It does not wait for a join. The child's table
    // begins empty: the parent's children are none of its own.
    void PrepareFork();
    void ParentAfterFork();
    void ChildAfterFork();

private:
    using HeldProcess = qv::platform::HeldProcess;
    class Scratch;

    std::uint32_t ReapHeld(HeldProcess& process);
    // False if another thread has given the handle up.
    bool TryReap(HeldProcess& process, std::uint32_t& exitCode);
    void Erase(QVHandle process);
    std::size_t HoldAll();

    // Recursive: a join for any child reaps under it, and holds it while it waits.
    std::optional<qv::core::OwnedMutex> m_setMutex;
    Set m_set;                                    // changes under m_setMutex and m_changes
    std::unique_ptr<HeldProcess[]> m_waitHandles; // these two under m_setMutex
    std::size_t m_waitCapacity = 0;
    qv::platform::CRITICAL_SECTION m_changes{}; // held for moments, and around a fork
};
