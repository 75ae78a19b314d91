// Tells the sanitizers that a thread goes on with another stack.
#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define QV_ADDRESS_SANITIZER 1
#elif defined(__SANITIZE_THREAD__)
#define QV_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QV_ADDRESS_SANITIZER 1
#elif __has_feature(thread_sanitizer)
#define QV_THREAD_SANITIZER 1
#endif
#endif

#if defined(QV_ADDRESS_SANITIZER)
#include <sanitizer/common_interface_defs.h>
#elif defined(QV_THREAD_SANITIZER)
#include <sanitizer/tsan_interface.h>
#endif

namespace qv::explore
{

// One for each stack. The one that a thread came with needs no Create.
class FiberSanitizer
{
public:
    FiberSanitizer() = default;
    FiberSanitizer(const FiberSanitizer&) = delete;
    FiberSanitizer& operator=(const FiberSanitizer&) = delete;

#if defined(QV_ADDRESS_SANITIZER)
    void Create(const void* stack, std::size_t size)
    {
        m_stack = stack;
        m_size = size;
    }
    void Leave(FiberSanitizer& to)
    {
        to.m_from = this;
        __sanitizer_start_switch_fiber(&m_fakeStack, to.m_stack, to.m_size);
    }
    // The first on the new stack.
    void Arrived()
    {
        __sanitizer_finish_switch_fiber(m_fakeStack, &m_from->m_stack, &m_from->m_size);
    }

private:
    const void* m_stack = nullptr;
    std::size_t m_size = 0;
    void* m_fakeStack = nullptr;
    FiberSanitizer* m_from = nullptr;
#elif defined(QV_THREAD_SANITIZER)
    ~FiberSanitizer()
    {
        if (m_isCreated) {
            __tsan_destroy_fiber(m_fiber);
        }
    }
    void Create(const void* /*stack*/, std::size_t /*size*/)
    {
        m_fiber = __tsan_create_fiber(0);
        m_isCreated = true;
    }
    void Leave(FiberSanitizer& to)
    {
        if (!m_isCreated) {
            m_fiber = __tsan_get_current_fiber();
        }
        __tsan_switch_to_fiber(to.m_fiber, 0);
    }
    void Arrived() {}

private:
    void* m_fiber = nullptr;
    bool m_isCreated = false;
#else
    void Create(const void* /*stack*/, std::size_t /*size*/) {}
    void Leave(FiberSanitizer& /*to*/) {}
    void Arrived() {}
#endif
};

} // namespace qv::explore
