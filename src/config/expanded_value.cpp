#include "config/expanded_value.h"

#include <cstring>
#include <memory>
#include <new>

#include "platform/environment.h"
#include "platform/error.h"

namespace qv::core
{

namespace
{

using Text = std::unique_ptr<char16_t[]>;

Text MakeText(std::uint32_t units)
{
    return Text(new (std::nothrow) char16_t[units]);
}

// The units of the value and a terminator: the value itself may have none, half a unit at its end,
// or an odd address.
Text CopyText(const ValueBuffer& buffer)
{
    const std::uint32_t units = buffer.size / sizeof(char16_t);
    Text text = MakeText(units + 1);
    if (text != nullptr) {
        std::memcpy(text.get(), buffer.data, units * sizeof(char16_t));
        text[units] = 0;
    }
    return text;
}

struct Expansion
{
    Text text;
    std::uint32_t units;
    QVRESULT result;
};

Expansion Expand(const char16_t* text)
{
    std::uint32_t room = 0;
    for (;;) {
        Text expanded = MakeText(room);
        if (expanded == nullptr) {
            return {nullptr, 0, E_OUTOFMEMORY};
        }
        const std::uint32_t needed =
            platform::ExpandEnvironmentStringsW(text, expanded.get(), room);
        if (needed == 0) {
            const bool noMemory = platform::GetLastError() == platform::ERROR_OUTOFMEMORY;
            return {nullptr, 0, noMemory ? E_OUTOFMEMORY : E_FAIL};
        }
        if (needed <= room) {
            return {std::move(expanded), needed, S_OK};
        }
        room = needed; // the environment may have grown meanwhile
    }
}

} // namespace

QVRESULT ExpandInPlace(ValueBuffer* buffer)
{
    const Text text = CopyText(*buffer);
    if (text == nullptr) {
        return E_OUTOFMEMORY;
    }
    const Expansion expansion = Expand(text.get());
    if (expansion.result < 0) {
        return expansion.result;
    }
    constexpr char16_t kEnd = 0;
    buffer->size = expansion.units * static_cast<std::uint32_t>(sizeof(char16_t));
    if (buffer->size <= buffer->capacity) {
        std::memcpy(buffer->data, expansion.text.get(), buffer->size);
        return S_OK;
    }
    if (buffer->capacity >= sizeof kEnd) {
        std::memcpy(buffer->data, &kEnd, sizeof kEnd);
    }
    return E_FAIL;
}

} // namespace qv::core
