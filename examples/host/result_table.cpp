#include "result_table.h"

#include <utility>

namespace host
{

void ResultTable::Store(std::size_t file, FileReport report)
{
    {
        const WriteHold hold(m_lock);
        m_reports[file] = std::move(report);
    }
    MustWork(QVEventSignal(m_stored.Handle()), "nobody can be told of a report");
}

std::optional<FileReport> ResultTable::Find(std::size_t file) const
{
    const ReadHold hold(m_lock);
    return m_reports[file];
}

FileReport ResultTable::Await(std::size_t file) const
{
    // A signal may stand for several reports, and for others than this one: look again each time.
    for (;;) {
        if (std::optional<FileReport> report = Find(file)) {
            return *std::move(report);
        }
        MustWork(QVEventWait(m_stored.Handle()), "no report can be waited for");
    }
}

} // namespace host
