#include <qvcore6/memory.h>

#include <atomic>
#include <type_traits>

namespace
{

// The words belong to callers, in C too, so they are plain integers.
template <class Word> std::atomic_ref<Word> Atomic(volatile Word* word)
{
    return std::atomic_ref<Word>(*const_cast<Word*>(word));
}

// Unsigned on the way, so that wrapping is defined.
template <class Word> Word Sum(Word first, Word second)
{
    using Unsigned = std::make_unsigned_t<Word>;
    return static_cast<Word>(static_cast<Unsigned>(first) + static_cast<Unsigned>(second));
}

} // namespace

int32_t QVAtomicIncrement(volatile int32_t* word)
{
    return Sum(Atomic(word).fetch_add(1), 1);
}

int32_t QVAtomicDecrement(volatile int32_t* word)
{
    return Sum(Atomic(word).fetch_sub(1), -1);
}

int32_t QVAtomicAdd32(volatile int32_t* word, int32_t addend)
{
    return Sum(Atomic(word).fetch_add(addend), addend);
}

intptr_t QVAtomicAddSZ(volatile intptr_t* word, intptr_t addend)
{
    return Sum(Atomic(word).fetch_add(addend), addend);
}

int32_t QVAtomicExchange(volatile int32_t* word, int32_t value)
{
    return Atomic(word).exchange(value);
}

int32_t QVAtomicCompareExchange(volatile int32_t* word, int32_t exchange, int32_t comparand)
{
    Atomic(word).compare_exchange_strong(comparand, exchange);
    return comparand;
}
