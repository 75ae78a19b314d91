// The machine's own addresses, found once.
#pragma once

#include <qvcore6/result.h>

#include <atomic>

#include "host/lazy_mutex.h"
#include "platform/network.h"

namespace qv::core
{

class FoundAddresses;

// Has neither constructor nor destructor to run.
class MyAddresses
{
public:
    QVRESULT Get(addrinfo** myAddresses, addrinfo** localhostInfo);

    void PrepareFork() { m_mutex.PrepareFork(); }
    void ParentAfterFork() { m_mutex.ParentAfterFork(); }
    void ChildAfterFork() { m_mutex.ChildAfterFork(); }
    void End();

private:
    LazyMutex m_mutex{"QVGetMyAddressInformation"};
    // Set once, when all is found: a fork at any time leaves the child all or nothing.
    std::atomic<FoundAddresses*> m_found{nullptr};
};

extern constinit MyAddresses g_myAddresses;

} // namespace qv::core
