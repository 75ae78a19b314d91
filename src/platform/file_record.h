// What a file's descriptor cannot carry: the name that goes with it, and the ranges it has locked.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/descriptor_record.h"

namespace qv::platform
{

struct LockedRange
{
    std::uint64_t begin;
    std::uint64_t end; // behind the last byte
    bool isShared;
    bool isHeld; // not yet, as long as its owner waits for it

    bool Meets(const LockedRange& other) const { return begin < other.end && other.begin < end; }
};

class FileRecord final : public DescriptorRecord
{
public:
    static constexpr DescriptorKind kKind = DescriptorKind::File;

    explicit FileRecord(const struct stat& file)
        : DescriptorRecord(kKind), m_device(file.st_dev), m_inode(file.st_ino), m_maker(getpid())
    {}

    // Not in a forked child, which has a copy.
    bool IsOwn() const { return m_maker == getpid(); }

    // Whether the descriptor is still the one that the record was made for, as far as can be seen.
    bool IsOf(Descriptor descriptor) const;

    // The descriptor's rights, as fcntl has them.
    int Flags(Descriptor descriptor);

    // Keeps the file's name, to be removed with the handle. Error 14, or why the name cannot be
    // found out. The path is what the file was opened by.
    DWORD RememberName(Descriptor descriptor, const char* path);

    DWORD Close(Descriptor descriptor) override;
    void OnEnd() override { RemoveName(); }
    bool IsLeftBehind(Descriptor descriptor) const override { return !IsOf(descriptor); }

    // Under the section of file_locks.cpp.
    std::vector<LockedRange> m_ranges;
    // The same file with both rights, for locks that the descriptor's own do not allow.
    Descriptor m_lockFile = -1;

private:
    ~FileRecord() override;
    void RemoveName();

    dev_t m_device;
    ino_t m_inode;
    pid_t m_maker;
    int m_flags = -1;   // not asked for yet
    std::string m_name; // empty: it stays
};

} // namespace qv::platform
