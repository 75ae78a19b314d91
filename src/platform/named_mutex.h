// Mutexes that processes share by name, and that outlive the death of their owner.
//
// The shared word names the owner by the slot of its handle, a locked byte of the object's file
// that the kernel frees with the process. Whoever waits for long looks whether that byte is still
// locked, and takes the mutex over if not. A slot may be given again before anybody has looked: its
// new holder then knows that the owner of that name is dead.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/named_object.h"
#include "platform/wait.h"

namespace qv::platform
{

class NamedMutex final : public KernelObject
{
public:
    NamedMutex() : KernelObject(ObjectKind::NamedMutex) {}

    // 0 and 183 as for NamedObject. Only a new one gets an initial owner.
    DWORD Open(const SECURITY_ATTRIBUTES* attributes, bool initialOwner, const char* name);

    // 0, 288, or 6 after the module's end and in a forked child, which has to open its own.
    DWORD Release();
    DWORD Wait(const Deadline& deadline) override;
    void Close() override { delete this; }

private:
    // The word: whether somebody may sleep; how often it was taken, so that one who has looked for
    // long does not mistake a later owner of the same slot for the one he saw; the owner.
    static constexpr std::uint32_t kMaySleep = 0x8000'0000;
    static constexpr std::uint32_t kTurn = 0x0010'0000;
    static constexpr std::uint32_t kTurns = 0x7FF0'0000;
    static constexpr std::uint32_t kOwner = 0x000F'FFFF;
    static constexpr std::uint32_t kNobody = 0;
    static constexpr std::uint32_t kFirstOwner = 1;
    static constexpr std::uint32_t kDead = kOwner; // whoever it was

    std::uint32_t Self() const { return m_object.SlotNumber() + 1; }
    bool IsDead(std::uint32_t owner) const;
    // Takes it at the word that was seen last.
    bool Take(std::atomic<std::uint32_t>& word, std::uint32_t& seen, std::uint32_t marks) const;

    NamedHeadHold m_object{NamedHeadHold::Slot::Own};
};

} // namespace qv::platform
