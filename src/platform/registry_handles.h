// Open keys.
#pragma once

#include <atomic>

#include "platform/registry_locations.h"
#include "platform/registry_records.h"
#include "platform/registry_store.h"
#include "platform/types.h"

namespace qv::platform
{

// Where an enumeration stands: the record that had that index when that commit was the last one.
struct EnumPosition
{
    std::size_t commit = 0; // 0: nowhere
    RecordKind kind = RecordKind::kFacts;
    DWORD index = 0;
    std::size_t keySize = 0;
    unsigned char key[kMaxRecordKey];

    void Set(RecordKind of, DWORD at, std::size_t number, const MDB_val& record);
    bool IsBefore(RecordKind of, DWORD at, std::size_t number) const
    {
        return commit != 0 && commit == number && kind == of && index + 1 == at;
    }
};

struct NamesAhead;

// The address of one is an HKEY. Only an enumeration changes it while it is open.
struct alignas(64) RegistryKey
{
    static constexpr std::uint32_t kOpen = 0x79654B52;

    std::atomic<std::uint32_t> taken{0};
    std::uint32_t mark = 0;
    StorePart part = StorePart::kUser;
    DWORD access = 0;
    Node node = 0;
    EnumPosition position;
    NamesAhead* ahead = nullptr;
};

// What a call works on, from a predefined or an open key.
struct KeyTarget
{
    StorePart part;
    Node node;
    DWORD access;
    RegistryKey* opened; // null for a predefined key
};

// Both views: 87. No key: 6.
DWORD FindTarget(HKEY key, DWORD view, KeyTarget* target);

// 14 without memory.
DWORD MakeHandle(StorePart part, Node node, DWORD access, HKEY* key);

} // namespace qv::platform
