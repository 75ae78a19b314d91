// What a file descriptor cannot carry stands in a record that is found by the descriptor's number:
// the path to delete at close, locked ranges, a child's exit code, a section's size.
//
// Most descriptors have none, and finding that out is two loads. Whoever uses a record holds it, so
// that a close by another thread meanwhile is safe. A descriptor that the host closes by itself
// leaves its record behind until the number comes again: a record tests, where a mistake would do
// harm, that the descriptor is still the one it was made for.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "platform/types.h"

namespace qv::platform
{

// A handle that callers hold; -1 is none, and the pseudo handle of the own process.
using Descriptor = std::int32_t;

enum class DescriptorKind : std::uint8_t
{
    File,
    Section,
    Process,
};

class DescriptorRecord
{
public:
    DescriptorRecord(const DescriptorRecord&) = delete;
    DescriptorRecord& operator=(const DescriptorRecord&) = delete;

    DescriptorKind Kind() const { return m_kind; }
    // The handle goes: everything that ends with it, the descriptor included. 0 or an error number.
    virtual DWORD Close(Descriptor descriptor) = 0;
    // Whether Close takes the record out of the table itself: no fork comes between the two.
    virtual bool IsTakenByClose() const { return false; }
    // The process or this module ends with the handle open. Others may be using the record.
    virtual void OnEnd() {}
    // Whether the number is another descriptor's by now, or nobody's.
    virtual bool IsLeftBehind(Descriptor /*descriptor*/) const { return false; }

protected:
    explicit DescriptorRecord(DescriptorKind kind) : m_kind(kind) {}
    virtual ~DescriptorRecord() = default;

private:
    template <class Record> friend class RecordHold;

    void Hold() { m_holds.fetch_add(1, std::memory_order_relaxed); }
    void Drop()
    {
        if (m_holds.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete this;
        }
    }

    std::atomic<std::uint32_t> m_holds{0};
    DescriptorKind m_kind;
};

// Keeps a record alive.
template <class Record> class RecordHold
{
public:
    RecordHold() = default;
    explicit RecordHold(Record* record) : m_record(record)
    {
        if (record != nullptr) {
            static_cast<DescriptorRecord*>(record)->Hold();
        }
    }
    // Without a word, like any pointer to a base.
    template <class Derived>
    RecordHold(RecordHold<Derived>&& other) noexcept // NOLINT(google-explicit-constructor)
        : m_record(other.Release())
    {}
    RecordHold(RecordHold&& other) noexcept : m_record(other.Release()) {}
    RecordHold& operator=(RecordHold&& other) noexcept
    {
        std::swap(m_record, other.m_record);
        return *this;
    }
    ~RecordHold()
    {
        if (m_record != nullptr) {
            static_cast<DescriptorRecord*>(m_record)->Drop();
        }
    }

    explicit operator bool() const { return m_record != nullptr; }
    Record* operator->() const { return m_record; }
    Record& operator*() const { return *m_record; }
    // Takes over a hold that Release has let out.
    static RecordHold Adopt(Record* record)
    {
        RecordHold hold;
        hold.m_record = record;
        return hold;
    }
    // Without dropping it.
    Record* Release() { return std::exchange(m_record, nullptr); }

private:
    Record* m_record = nullptr;
};

// Gives the descriptor a record, in place of one that was left behind. 0; 14; 4 if the number is
// above a million, and the table would grow too large.
DWORD PutRecord(Descriptor descriptor, RecordHold<DescriptorRecord> record);

// Whether PutRecord for this number would need no memory. Safe between clone and exec.
bool HasRoomFor(Descriptor descriptor);
// Sees to that. 0, or an error number of PutRecord's.
DWORD MakeRoomFor(Descriptor descriptor);

// Empty if there is none.
RecordHold<DescriptorRecord> FindRecord(Descriptor descriptor);
// The same, out of the table: for the one who closes the descriptor.
RecordHold<DescriptorRecord> TakeRecord(Descriptor descriptor);
// Only this one, else empty.
RecordHold<DescriptorRecord> TakeRecord(Descriptor descriptor, const DescriptorRecord& record);

// The descriptor has been closed: what another thread's call has put under its number meanwhile
// goes.
void EndDescriptor(Descriptor descriptor);
// A descriptor has come into being: what a close that the layer has not seen left behind under its
// number goes.
void BeginDescriptor(Descriptor descriptor);

// Whether writing to it can raise no signal, as far as the layer knows. Until it is closed.
void MarkPlain(Descriptor descriptor, bool isPlain);
bool IsPlain(Descriptor descriptor);

// As the record wants it, for Close.
RecordHold<DescriptorRecord> TakeRecordToClose(Descriptor descriptor);

// Empty if there is none of this type.
template <class Record> RecordHold<Record> FindRecordOf(Descriptor descriptor)
{
    RecordHold<DescriptorRecord> found = FindRecord(descriptor);
    if (!found || found->Kind() != Record::kKind) {
        return {};
    }
    RecordHold<Record> typed(static_cast<Record*>(&*found));
    return typed;
}

// Tells all records of the end.
void EndRecords();
// After an unload: frees what the table holds.
void ForgetRecords();

// Around a fork, which would copy a change half done.
void HoldRecords();
void ReleaseRecords();

} // namespace qv::platform
