// Tells the sanitizers that a thread goes on with another stack.
#pragma once

#include <cstddef>
#include <memory>

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
    void Create(const void* /*stack*/, std::size_t /*size*/)
    {
        m_made.reset(__tsan_create_fiber(0));
    }
    void Leave(FiberSanitizer& to)
    {
        m_left = __tsan_get_current_fiber();
        __tsan_switch_to_fiber(to.m_made ? to.m_made.get() : to.m_left, 0);
    }
    void Arrived() {}

private:
    struct Destroy
    {
        void operator()(void* fiber) const { __tsan_destroy_fiber(fiber); }
    };
    std::unique_ptr<void, Destroy> m_made;
    void* m_left = nullptr;
#else
    void Create(const void* /*stack*/, std::size_t /*size*/) {}
    void Leave(FiberSanitizer& /*to*/) {}
    void Arrived() {}
#endif
};

} // namespace qv::explore
