// Children that are given up while they run, and the thread that waits for their ends.
#include "process/children.h"

#include <pthread.h>
#include <sys/epoll.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "platform/orphans.h"

using namespace qv::test;
using qv::platform::Orphans;

namespace
{

std::atomic<const char*> g_failing{""};
std::atomic<int> g_set{-1}; // that the thread waits with

bool Fails(const char* call)
{
    errno = ENOMEM;
    return std::string_view(g_failing.load()) == call;
}

} // namespace

extern "C"
{
    // The race checker would end forked children that start a thread.
    const char* __tsan_default_options()
    {
        return "die_after_fork=0";
    }

    decltype(epoll_create1) __real_epoll_create1;
    decltype(epoll_ctl) __real_epoll_ctl;
    decltype(pthread_create) __real_pthread_create;

    int __wrap_epoll_create1(int flags)
    {
        g_set = Fails("epoll_create1") ? -1 : __real_epoll_create1(flags);
        return g_set;
    }
    int __wrap_epoll_ctl(int set, int action, int file, epoll_event* event)
    {
        return Fails("epoll_ctl") ? -1 : __real_epoll_ctl(set, action, file, event);
    }
    int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*routine)(void*), void* argument)
    {
        return Fails("pthread_create")
                   ? EAGAIN
                   : __real_pthread_create(thread, attributes, routine, argument);
    }
}

namespace
{

bool ThreadIsThere()
{
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::any_of(begin(tasks), end(tasks), [](const auto& task) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        return name == "qvcore6-orphans";
    });
}

class OrphansTest : public testing::Test
{
protected:
    ~OrphansTest() override
    {
        g_failing = "";
        EXPECT_TRUE(Becomes(HasNoChildren));
        EXPECT_TRUE(Becomes([] { return !ThreadIsThere(); }));
        EXPECT_EQ(CountDescriptors(), m_descriptors);
    }

    const std::ptrdiff_t m_descriptors = CountDescriptors();
};

void Detach(std::vector<Copier>& copiers)
{
    for (Copier& copier : copiers) {
        EXPECT_EQ(QVProcessDetach(copier.process), S_OK);
    }
}

void Wake(std::vector<Copier>& copiers)
{
    for (Copier& copier : copiers) {
        copier.Wake();
    }
}

// Without a further call of the library.
TEST_F(OrphansTest, AreNoZombiesAndLeaveNoThread)
{
    for (int round = 0; round < 20; ++round) {
        std::vector<Copier> copiers(5), others(5);
        Detach(copiers);
        EXPECT_TRUE(Becomes([] { return ThreadIsThere(); }));
        Wake(copiers);
        Detach(others); // while the thread may be about to end
        Wake(others);
        if (round % 2 == 0) {
            EXPECT_TRUE(Becomes(HasNoChildren));
        }
    }
}

TEST_F(OrphansTest, AreLookedAfterByTheNextCallWithoutTheThread)
{
    for (const char* call : {"epoll_create1", "epoll_ctl", "pthread_create"}) {
        std::vector<Copier> copiers(3);
        g_failing = call;
        Detach(copiers);
        g_failing = "";
        EXPECT_FALSE(ThreadIsThere()) << call;
        Wake(copiers);
        char name[8];
        EXPECT_TRUE(Becomes([&] {
            QVProcessGetName(0, name, sizeof name);
            return HasNoChildren();
        })) << call;
    }
#ifndef __SANITIZE_THREAD__ // which rightly calls that a race
    // The host has closed what it does not know.
    std::vector<Copier> copiers(1);
    Detach(copiers);
    close(g_set);
    const int own = dup(0);
    EXPECT_EQ(own, g_set);
    Wake(copiers);
    uint32_t code;
    EXPECT_TRUE(Becomes([&] { return QVProcessGetExitCode(1000, &code) < 0 && HasNoChildren(); }));
    EXPECT_EQ(close(own), 0) << "it is the host's";
#endif
}

TEST_F(OrphansTest, AreTheParentsAlone)
{
    std::vector<Copier> copiers(3);
    Detach(copiers);
    Child forked([] {
        std::vector<Copier> own(2);
        Detach(own);
        Wake(own);
        return Becomes(HasNoChildren);
    });
    EXPECT_TRUE(forked.Succeeded());
    Child copy([] { return pause() == 0; }); // has the descriptors of all
    Wake(copiers);
    copy.Kill();
}

// At the end of the process or of the library.
TEST_F(OrphansTest, GoOnWithoutTheThread)
{
    EXPECT_TRUE(Child([] {
                    std::vector<Copier> own(2);
                    Detach(own);
                    exit(0);
                    return false;
                }).Succeeded());
    std::vector<Copier> copiers(3);
    Detach(copiers);
    Orphans::StopThread();
    Orphans::StopThread();
    EXPECT_TRUE(Becomes([] { return !ThreadIsThere(); }));
    Orphans::Forget();
    Wake(copiers);
    for (int i = 0; i < 3; ++i) {
        EXPECT_GT(waitpid(-1, nullptr, 0), 0);
    }
}

} // namespace
