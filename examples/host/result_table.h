// What was found, file by file: filled by the threads that work, read by the one that prints.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "analysis.h"
#include "handles.h"

namespace host
{

class ResultTable
{
public:
    explicit ResultTable(std::size_t files) : m_reports(files) {}

    void Store(std::size_t file, FileReport report);
    // The report of a file; none as long as nobody has stored it.
    std::optional<FileReport> Find(std::size_t file) const;
    // The same, but waits for it. For one thread.
    FileReport Await(std::size_t file) const;

private:
    RWLock m_lock{"host: reports"};
    std::vector<std::optional<FileReport>> m_reports; // guarded by m_lock
    Event m_stored{"host: a report more"};
};

} // namespace host
