#include <qvcore6/memory.h>

#include <cstring>

namespace
{

template <class Value> Value Get(const void* address)
{
    Value value;
    std::memcpy(&value, address, sizeof value);
    return value;
}

template <class Value> void Put(void* address, Value value)
{
    std::memcpy(address, &value, sizeof value);
}

} // namespace

uint16_t QVSwapInt16(uint16_t value)
{
    return __builtin_bswap16(value);
}

uint32_t QVSwapInt32(uint32_t value)
{
    return __builtin_bswap32(value);
}

uint64_t QVSwapInt64(uint64_t value)
{
    return __builtin_bswap64(value);
}

uint16_t QVGetUnalignedInt16(const void* address)
{
    return Get<uint16_t>(address);
}

uint32_t QVGetUnalignedInt32(const void* address)
{
    return Get<uint32_t>(address);
}

uint64_t QVGetUnalignedInt64(const void* address)
{
    return Get<uint64_t>(address);
}

void QVPutUnalignedInt16(void* address, uint16_t value)
{
    Put(address, value);
}

void QVPutUnalignedInt32(void* address, uint32_t value)
{
    Put(address, value);
}

void QVPutUnalignedInt64(void* address, uint64_t value)
{
    Put(address, value);
}
