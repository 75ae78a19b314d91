#include "platform/descriptor_record.h"

#include <cstddef>
#include <iterator>
#include <new>

#include "platform/section_hold.h"

namespace qv::platform
{

namespace
{

constexpr std::uint32_t kSlots = 256; // of a chunk
constexpr std::uint32_t kChunks = 4096;

struct Chunk
{
    std::atomic<DescriptorRecord*> slots[kSlots];
};

// Chunks come with the first record among their numbers, and stay.
constinit std::atomic<Chunk*> g_chunks[kChunks]{};

// Held for changes, and for the moment in which a record that stands in the table is taken hold of.
constinit CRITICAL_SECTION g_lock{};

// For the numbers that most processes stay below.
constinit std::atomic<bool> g_isPlain[1 << 16]{};

std::atomic<DescriptorRecord*>* SlotOf(Descriptor descriptor)
{
    const auto number = static_cast<std::uint32_t>(descriptor);
    if (number >= kSlots * kChunks) {
        return nullptr;
    }
    Chunk* const chunk = g_chunks[number / kSlots].load(std::memory_order_acquire);
    return chunk != nullptr ? &chunk->slots[number % kSlots] : nullptr;
}

bool HasRecord(const std::atomic<DescriptorRecord*>* slot)
{
    return slot != nullptr && slot->load(std::memory_order_acquire) != nullptr;
}

// For changes: with the chunk made.
std::atomic<DescriptorRecord*>* MakeSlot(Descriptor descriptor)
{
    const std::size_t number = static_cast<std::uint32_t>(descriptor) / kSlots;
    if (g_chunks[number].load(std::memory_order_relaxed) == nullptr) {
        auto* const chunk = new (std::nothrow) Chunk{};
        g_chunks[number].store(chunk, std::memory_order_release);
    }
    return SlotOf(descriptor);
}

} // namespace

DWORD PutRecord(Descriptor descriptor, RecordHold<DescriptorRecord> record)
{
    if (static_cast<std::uint32_t>(descriptor) >= kSlots * kChunks) {
        return ERROR_TOO_MANY_OPEN_FILES;
    }
    RecordHold<DescriptorRecord> leftBehind; // goes after the lock
    const SectionHold locked(&g_lock);
    std::atomic<DescriptorRecord*>* const slot = MakeSlot(descriptor);
    if (slot == nullptr) {
        return ERROR_OUTOFMEMORY;
    }
    leftBehind = RecordHold<DescriptorRecord>::Adopt(
        slot->exchange(record.Release(), std::memory_order_acq_rel));
    return ERROR_SUCCESS;
}

bool HasRoomFor(Descriptor descriptor)
{
    return SlotOf(descriptor) != nullptr;
}

DWORD MakeRoomFor(Descriptor descriptor)
{
    if (static_cast<std::uint32_t>(descriptor) >= kSlots * kChunks) {
        return ERROR_TOO_MANY_OPEN_FILES;
    }
    const SectionHold locked(&g_lock);
    return MakeSlot(descriptor) != nullptr ? ERROR_SUCCESS : ERROR_OUTOFMEMORY;
}

RecordHold<DescriptorRecord> FindRecord(Descriptor descriptor)
{
    std::atomic<DescriptorRecord*>* const slot = SlotOf(descriptor);
    if (!HasRecord(slot)) {
        return {};
    }
    const SectionHold locked(&g_lock);
    return RecordHold<DescriptorRecord>(slot->load(std::memory_order_relaxed));
}

RecordHold<DescriptorRecord> TakeRecord(Descriptor descriptor)
{
    RecordHold<DescriptorRecord> taken;
    std::atomic<DescriptorRecord*>* const slot = SlotOf(descriptor);
    if (HasRecord(slot)) {
        const SectionHold locked(&g_lock);
        taken =
            RecordHold<DescriptorRecord>::Adopt(slot->exchange(nullptr, std::memory_order_acq_rel));
    }
    return taken;
}

void EndDescriptor(Descriptor descriptor)
{
    const RecordHold<DescriptorRecord> found = FindRecord(descriptor);
    if (found && found->IsLeftBehind(descriptor)) {
        TakeRecord(descriptor, *found);
    }
}

void BeginDescriptor(Descriptor descriptor)
{
    TakeRecord(descriptor);
    MarkPlain(descriptor, false);
}

void MarkPlain(Descriptor descriptor, bool isPlain)
{
    const auto number = static_cast<std::uint32_t>(descriptor);
    if (number < std::size(g_isPlain) &&
        g_isPlain[number].load(std::memory_order_relaxed) != isPlain) {
        g_isPlain[number].store(isPlain, std::memory_order_relaxed);
    }
}

bool IsPlain(Descriptor descriptor)
{
    const auto number = static_cast<std::uint32_t>(descriptor);
    return number < std::size(g_isPlain) && g_isPlain[number].load(std::memory_order_relaxed);
}

RecordHold<DescriptorRecord> TakeRecord(Descriptor descriptor, const DescriptorRecord& record)
{
    std::atomic<DescriptorRecord*>* const slot = SlotOf(descriptor);
    const SectionHold locked(&g_lock);
    if (slot == nullptr || slot->load(std::memory_order_relaxed) != &record) {
        return {};
    }
    return RecordHold<DescriptorRecord>::Adopt(slot->exchange(nullptr, std::memory_order_acq_rel));
}

RecordHold<DescriptorRecord> TakeRecordToClose(Descriptor descriptor)
{
    std::atomic<DescriptorRecord*>* const slot = SlotOf(descriptor);
    if (!HasRecord(slot)) {
        return {};
    }
    const SectionHold locked(&g_lock);
    DescriptorRecord* const record = slot->load(std::memory_order_relaxed);
    if (record != nullptr && record->IsTakenByClose()) {
        return RecordHold<DescriptorRecord>(record);
    }
    slot->store(nullptr, std::memory_order_release);
    return RecordHold<DescriptorRecord>::Adopt(record);
}

void EndRecords()
{
    const SectionHold locked(&g_lock);
    for (const auto& place : g_chunks) {
        Chunk* const chunk = place.load(std::memory_order_relaxed);
        for (std::size_t i = 0; chunk != nullptr && i < kSlots; ++i) {
            if (DescriptorRecord* const record = chunk->slots[i].load(std::memory_order_relaxed)) {
                record->OnEnd();
            }
        }
    }
}

void ForgetRecords()
{
    for (auto& place : g_chunks) {
        Chunk* const chunk = place.exchange(nullptr, std::memory_order_relaxed);
        for (std::size_t i = 0; chunk != nullptr && i < kSlots; ++i) {
            RecordHold<DescriptorRecord>::Adopt(chunk->slots[i].load(std::memory_order_relaxed));
        }
        delete chunk;
    }
}

void HoldRecords()
{
    EnterCriticalSection(&g_lock);
}

void ReleaseRecords()
{
    LeaveCriticalSection(&g_lock);
}

} // namespace qv::platform
