#include "config/value_types.h"

#include <qvcore6/registry.h>

#include "platform/registry_store.h"

namespace qv::core
{

namespace
{

constexpr std::uint32_t kNone = 0xFFFFFFFF;

struct TypeRow
{
    std::uint32_t native;
    std::uint32_t read;
    std::uint32_t enumerated;
    std::uint32_t written;
};

constexpr TypeRow kTypes[] = {
    {platform::REG_NONE, QV_REGTYPE_BINARY, kNone, kNone},
    {platform::REG_SZ, QV_REGTYPE_STRING, QV_REGTYPE_STRING, QV_REGTYPE_STRING},
    {platform::REG_EXPAND_SZ, QV_REGTYPE_STRING, QV_REGTYPE_STRING, QV_REGTYPE_EXPAND_STRING},
    {platform::REG_BINARY, QV_REGTYPE_BINARY, QV_REGTYPE_BINARY, QV_REGTYPE_BINARY},
    {platform::REG_DWORD, QV_REGTYPE_DWORD, QV_REGTYPE_DWORD, QV_REGTYPE_DWORD},
    {platform::REG_MULTI_SZ, QV_REGTYPE_MULTI_STRING, QV_REGTYPE_MULTI_STRING,
     QV_REGTYPE_MULTI_STRING},
    {platform::REG_QWORD, QV_REGTYPE_QWORD, kNone, kNone},
};

const TypeRow* FindNative(std::uint32_t native)
{
    for (const TypeRow& row : kTypes) {
        if (row.native == native) {
            return &row;
        }
    }
    return nullptr;
}

} // namespace

std::uint32_t TypeOfValue(std::uint32_t native)
{
    const TypeRow* const row = FindNative(native);
    return row != nullptr ? row->read : native;
}

void TypeOfEnumerated(std::uint32_t native, std::uint32_t* type)
{
    const TypeRow* const row = FindNative(native);
    if (row != nullptr && row->enumerated != kNone) {
        *type = row->enumerated;
    }
}

bool NativeType(std::uint32_t type, std::uint32_t* native)
{
    for (const TypeRow& row : kTypes) {
        if (row.written == type && type != kNone) {
            *native = row.native;
            return true;
        }
    }
    return false;
}

} // namespace qv::core
