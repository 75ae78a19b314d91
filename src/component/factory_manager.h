// The cache of class objects, and the look-up that fills it.
#pragma once

#include <qvcore6/component.h>

#include <atomic>

#include "component/factory_map.h"
#include "locks/lock_guard.h"

namespace qv::core
{
class HeldInterface;
class HeldLibrary;
} // namespace qv::core

class CQVFactoryManager
{
public:
    CQVFactoryManager();
    ~CQVFactoryManager();
    CQVFactoryManager(const CQVFactoryManager&) = delete;
    CQVFactoryManager& operator=(const CQVFactoryManager&) = delete;

    // The class's interface, counted. From the cache, or from its library, which then is cached.
    // Throws; a failure leaves the map as it was and the library closed.
    void* GetClassObject(const GUID& clsid, const GUID& iid);
    void Flush();

    // Around a fork, by the thread that forks. A thread that is loading a class may hold the map's
    // mutex for long, and does not exist in the child: there the cache then refuses for good.
    void PrepareFork();
    void ParentAfterFork();
    void ChildAfterFork();

private:
    class Loading;

    void* LoadClassObject(const GUID& clsid, const GUID& iid, qv::core::HeldLibrary& library,
                          qv::core::HeldInterface& object);
    bool TryHoldMap();
    void GiveBackMap();
    void RefuseIfLost() const;

    // Recursive: a component's load routine may look up classes. Held for a whole look-up.
    qv::core::OwnedMutex m_mapMutex{"CQVFactoryManager::m_mapMutex", 0};
    // Under m_mapMutex. In a union, so that a child that lost the map does not end it.
    union {
        qv::core::FactoryMap m_map;
    };
    // How many foreign calls of unknown length the holder of the map's mutex is in.
    std::atomic<int> m_loading{0};
    bool m_lost = false; // written only in a child with one thread
};
