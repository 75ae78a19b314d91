// The file of a named object: its head, and its two locks.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "platform/named_object_name.h"
#include "platform/security.h"
#include "platform/types.h"

namespace qv::platform
{

enum class NamedKind : std::uint32_t
{
    Semaphore = 1,
    Section = 2,
    Mutex = 3,
};

// What the creator of an object chooses. A kind takes what it needs.
struct NamedContent
{
    std::uint64_t dataSize = 0; // behind the head
    std::uint32_t limit = 0;
    std::uint32_t word = 0;
};

// The start of the file. Another process may have written anything: it is tested where a wrong
// value could do more harm than a wrong answer.
struct NamedHead
{
    std::uint32_t magic;
    std::uint32_t version;
    NamedKind kind;
    std::uint32_t nameUnits;
    WCHAR name[kMaxObjectName];
    std::uint64_t dataSize;
    std::uint32_t limit;
    alignas(64) std::atomic<std::uint32_t> word; // with a cache line to itself
};

inline constexpr std::size_t kNamedHeadSize = 4096;
static_assert(sizeof(NamedHead) <= kNamedHeadSize);
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

enum class ObjectByte
{
    Gate,
    Life,
};

// Not an error number: something is to be tried again.
inline constexpr DWORD kTryAgain = 0xFFFFFFFF;

// Which file an open one is.
struct FileIdentity
{
    std::uint64_t device = 0;
    std::uint64_t node = 0;
    bool operator==(const FileIdentity&) const = default;
};

struct FileState
{
    FileIdentity identity;
    std::uint64_t size = 0;
    bool hasName = false;
    std::int64_t changed = 0; // in seconds since 1970
};

// An open file, closed at the end. Nothing here waits.
class ObjectFile
{
public:
    ObjectFile() = default;
    explicit ObjectFile(int file) : m_file(file) {}
    ObjectFile(ObjectFile&& other) noexcept : m_file(std::exchange(other.m_file, -1)) {}
    ObjectFile& operator=(ObjectFile&&) = delete;
    ~ObjectFile();

    // Error 2 if there is none. It may be no plain file.
    DWORD Open(const ObjectPath& path);
    // A whole one without a name.
    DWORD Make(Audience audience, std::u16string_view name, NamedKind kind,
               const NamedContent& content);
    // Gives it its name: kTryAgain if that is taken.
    DWORD Link(const ObjectPath& path) const;
    // The content anew. The file is empty after a failure.
    DWORD Fill(std::u16string_view name, NamedKind kind, const NamedContent& content) const;

    void Empty() const;
    // The bytes become 0, and take no room: unlike Empty, under mappings too.
    void FreeMemory() const;

    // kTryAgain if another holder is in the way.
    DWORD LockForWriting(ObjectByte byte) const;
    DWORD LockForReading(ObjectByte byte) const;
    void Unlock(ObjectByte byte) const;
    // What other open files have there: nothing as well if that cannot be found out.
    enum class Others
    {
        None,
        Reading,
        Writing,
    };
    Others OthersAt(ObjectByte byte) const;

    // A number that no other open file has as long as this one is open, mapped or shared: what is
    // left of a holder who has been killed is known by it.
    DWORD TakeSlot(std::uint32_t* slot) const;
    // Whether another open file has it.
    bool IsSlotTaken(std::uint32_t slot) const;

    // Error 6 for what is no plain file.
    DWORD Look(FileState* state) const;
    // Whether the path still leads to this file.
    static bool IsAt(const ObjectPath& path, const FileIdentity& identity);
    // Error 6 unless it is an object of this name and kind, whole. kTryAgain for a file without
    // content: the last holder has freed it, or one who was taking it over has been killed.
    DWORD Test(std::u16string_view name, NamedKind kind, const FileState& state,
               std::uint64_t* dataSize) const;
    // Null without memory.
    NamedHead* MapHead() const;

    int Number() const { return m_file; }
    int Release() { return std::exchange(m_file, -1); }

private:
    DWORD Lock(std::int64_t byte, int type) const;
    Others OthersAtByte(std::int64_t byte) const;
    DWORD Allocate(std::uint64_t size) const;
    void Admit(Audience audience) const;

    int m_file = -1;
};

} // namespace qv::platform
