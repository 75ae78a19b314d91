// How far the work is, in memory that a second process sees.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "child.h"

namespace host
{

struct SharedCounter;

// A named block of shared memory that holds the counter, mapped.
class SharedProgress
{
public:
    // Makes the block, or opens it with a total of 0. Throws.
    SharedProgress(const std::string& name, uint32_t total);
    ~SharedProgress();
    SharedProgress(const SharedProgress&) = delete;
    SharedProgress& operator=(const SharedProgress&) = delete;

    void Add();
    std::string InWords() const; // "3 of 4 files"

private:
    QVHandle m_block = QV_HANDLE_NONE;
    void* m_view = nullptr;
};

// Counts files, and has a second process print the count when it has changed.
class Progress
{
public:
    // Throws.
    Progress(uint32_t total, const std::u16string& watcher);

    // Any number of threads at once.
    void Count();
    // What the second process has printed. The last call.
    std::string Finish();

private:
    std::string m_name;
    SharedProgress m_shared;
    Child m_watcher;
};

// The second process: looks at the counter of that name at each byte of its standard input.
int Watch(const std::string& name);

} // namespace host
