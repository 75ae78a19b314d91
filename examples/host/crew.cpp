#include "crew.h"

#include <exception>
#include <utility>

namespace host
{

Crew::Crew(const std::vector<TextFile>& files, const std::vector<TextClass>& classes,
           std::size_t threads, Progress& progress)
    : m_files(files), m_classes(classes), m_results(files.size()), m_progress(progress)
{
    m_threads.reserve(threads);
    while (m_threads.size() < threads) {
        QVThread thread = QV_THREAD_NONE;
        uint32_t id = 0;
        if (QVThreadCreate(&Work, this, 0, 0, &thread, &id) < 0) {
            break; // fewer hands do it too
        }
        m_threads.push_back(thread);
    }
    if (m_threads.empty()) {
        Work(this);
    }
}

Crew::~Crew()
{
    Drop();
    Finish();
}

std::vector<uint32_t> Crew::Finish()
{
    std::vector<uint32_t> counts;
    for (const QVThread thread : std::exchange(m_threads, {})) {
        uint32_t done = 0;
        QVThreadJoin(thread, &done);
        counts.push_back(done);
    }
    return counts;
}

uint32_t Crew::Work(void* crew)
{
    auto& self = *static_cast<Crew*>(crew);
    uint32_t done = 0;
    std::size_t file = 0;
    while (self.Take(file)) {
        FileReport report;
        try {
            report = Analyse(self.m_files[file], self.m_classes);
        } catch (const std::exception& failure) {
            report.problems.push_back(self.m_files[file].name + ": " + failure.what());
        }
        self.m_results.Store(file, std::move(report));
        self.m_progress.Count();
        ++done;
    }
    return done;
}

bool Crew::Take(std::size_t& file)
{
    const MutexHold hold(m_mutex);
    if (m_next >= m_files.size()) {
        return false;
    }
    file = m_next++;
    return true;
}

void Crew::Drop()
{
    const MutexHold hold(m_mutex);
    m_next = m_files.size();
}

} // namespace host
