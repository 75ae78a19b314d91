// Threads that take the files one after another.
#pragma once

#include <qvcore6/thread.h>

#include <cstddef>
#include <vector>

#include "analysis.h"
#include "files.h"
#include "handles.h"
#include "progress.h"
#include "result_table.h"

namespace host
{

class Crew
{
public:
    // Starts at most this many threads, and works on its own if none can be started. The
    // arguments must live as long as the crew.
    Crew(const std::vector<TextFile>& files, const std::vector<TextClass>& classes,
         std::size_t threads, Progress& progress);
    // Waits for all threads; files that nobody has taken yet are left out.
    ~Crew();
    Crew(const Crew&) = delete;
    Crew& operator=(const Crew&) = delete;

    // The report of a file, as soon as it is there.
    FileReport Await(std::size_t file) const { return m_results.Await(file); }
    // Waits for all threads. How many files each of them has done.
    std::vector<uint32_t> Finish();

    const Mutex& QueueMutex() const { return m_mutex; }

private:
    static uint32_t Work(void* crew);
    bool Take(std::size_t& file);
    void Drop();

    const std::vector<TextFile>& m_files;
    const std::vector<TextClass>& m_classes;
    ResultTable m_results;
    Progress& m_progress;
    // Checked as well: a slip in this file shows as a failure, not as a broken queue.
    Mutex m_mutex{"host: files to do", QV_MUTEX_STATS | QV_MUTEX_CHECKED};
    std::size_t m_next = 0; // guarded by m_mutex
    std::vector<QVThread> m_threads;
};

} // namespace host
