#include "progress.h"

#include <qvcore6/sharedmem.h>

#include <atomic>
#include <cstdio>
#include <new>
#include <utility>
#include <vector>

#include "handles.h"
#include "store.h"

namespace host
{

struct SharedCounter
{
    std::atomic<uint32_t> done;
    std::atomic<uint32_t> total;
};

namespace
{

SharedCounter& CounterAt(void* view)
{
    return *static_cast<SharedCounter*>(view);
}

std::string OwnName()
{
    return "qvcore6-host." + std::to_string(QVProcessGetID());
}

} // namespace

SharedProgress::SharedProgress(const std::string& name, uint32_t total)
{
    const bool makes = total != 0;
    const uint32_t rights = QV_FILE_READ | QV_FILE_WRITE;
    MustWork(QVSharedMemOpen(name.c_str(),
                             makes ? rights | QV_FILE_CREATE | QV_FILE_EXCLUSIVE : rights, 0,
                             sizeof(SharedCounter), &m_block),
             "there is no shared counter");
    const QVRESULT mapped = QVSharedMemAttach(m_block, rights, &m_view);
    if (mapped < 0) {
        QVSharedMemClose(m_block);
        MustWork(mapped, "the shared counter cannot be seen");
    }
    if (makes) {
        new (m_view) SharedCounter{{0}, {total}};
    }
}

SharedProgress::~SharedProgress()
{
    QVSharedMemDetach(m_view);
    QVSharedMemClose(m_block);
}

void SharedProgress::Add()
{
    ++CounterAt(m_view).done;
}

std::string SharedProgress::InWords() const
{
    const SharedCounter& counter = CounterAt(m_view);
    return std::to_string(counter.done) + " of " + std::to_string(counter.total) + " files";
}

Progress::Progress(uint32_t total, const std::u16string& watcher)
    : m_name(OwnName()), m_shared(m_name, total), m_watcher(watcher, u"--watch " + Widen(m_name))
{}

void Progress::Count()
{
    m_shared.Add();
    // A second process that has gone is no reason to stop.
    Write(m_watcher.Input(), "\n", 1);
}

std::string Progress::Finish()
{
    m_watcher.Input().Close();
    return m_watcher.Output();
}

int Watch(const std::string& name)
{
    const SharedProgress progress(name, 0);
    Handle input;
    Open({}, input); // the standard input
    std::string printed;
    std::vector<char> told(1);
    while (Read(input, told) >= 0 && !told.empty()) {
        // Those who count may be faster than this process.
        if (std::string now = progress.InWords(); now != printed) {
            std::printf("%s\n", now.c_str());
            printed = std::move(now);
        }
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}

} // namespace host
