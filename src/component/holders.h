// What a class look-up holds until it succeeds, given back when it does not.
#pragma once

#include <qvcore6/module.h>

#include <utility>

#include "component/foreign.h"
#include "frame/boundary.h"
#include "frame/facts.h"

namespace qv::core
{

// An interface that the class object gave, until it is passed on.
class HeldInterface
{
public:
    HeldInterface() = default;
    ~HeldInterface()
    {
        if (m_object != nullptr) {
            Boundary([&] { TableOf(m_object).Release(m_object); });
        }
    }
    HeldInterface(const HeldInterface&) = delete;
    HeldInterface& operator=(const HeldInterface&) = delete;

    void Take(void* object) { m_object = static_cast<IQVUnknown*>(object); }
    IQVUnknown* Get() const { return m_object; }
    void* PassOn() { return std::exchange(m_object, nullptr); }

private:
    IQVUnknown* m_object = nullptr;
};

// A library of a class that is not cached yet.
class HeldLibrary
{
public:
    HeldLibrary() = default;
    ~HeldLibrary()
    {
        if (m_library != QV_LIBRARY_NONE) {
            QVModuleLibClose(s_selfModule, m_library);
        }
    }
    HeldLibrary(const HeldLibrary&) = delete;
    HeldLibrary& operator=(const HeldLibrary&) = delete;

    void Open(const QVWChar* path)
    {
        ThrowIfFailed(QVModuleLibOpen(s_selfModule, path, &m_library));
    }
    QVLibrary Get() const { return m_library; }
    QVLibrary PassOn() { return std::exchange(m_library, QV_LIBRARY_NONE); }

private:
    QVLibrary m_library = QV_LIBRARY_NONE;
};

} // namespace qv::core
