// Types of values between the interface's codes and the native numbers.
#pragma once

#include <cstdint>

namespace qv::core
{

// Reading a value by its name: a native type without a code stays as it is.
std::uint32_t TypeOfValue(std::uint32_t native);

// Enumerating values: *type is left alone for a native type without a code.
void TypeOfEnumerated(std::uint32_t native, std::uint32_t* type);

// Writing a value. False for what cannot be written.
bool NativeType(std::uint32_t type, std::uint32_t* native);

} // namespace qv::core
