// The base of every reference-counted object, and the pointer that holds a reference.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

class CQVCoreRefCounted
{
public:
    CQVCoreRefCounted() = default;
    virtual ~CQVCoreRefCounted() = default;
    CQVCoreRefCounted(const CQVCoreRefCounted&) = delete;
    CQVCoreRefCounted& operator=(const CQVCoreRefCounted&) = delete;

    // Both give the new count. The caller that reaches 0 destroys the object.
    std::int32_t RaiseCount() { return ++m_refCount; }
    std::int32_t LowerCount() { return --m_refCount; }

private:
    std::atomic<std::int32_t> m_refCount{0};
};

namespace qv::core
{

// One word. Taking an object raises its count, dropping the last reference deletes it.
template <class T> class RefPtr
{
public:
    RefPtr() = default;
    explicit RefPtr(T* object) : m_object(object)
    {
        if (m_object != nullptr) {
            m_object->RaiseCount();
        }
    }
    RefPtr(const RefPtr& other) : RefPtr(other.m_object) {}
    RefPtr(RefPtr&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    ~RefPtr() { Drop(); }

    RefPtr& operator=(RefPtr other) noexcept
    {
        std::swap(m_object, other.m_object);
        return *this;
    }

    T* Get() const { return m_object; }
    T* operator->() const { return m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    void Drop()
    {
        if (m_object != nullptr && m_object->LowerCount() == 0) {
            delete m_object;
        }
    }

    T* m_object = nullptr;
};

} // namespace qv::core
