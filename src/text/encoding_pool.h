// Converters for whole texts, kept for the next text: to find and open one takes ICU several times
// as long as to convert a line.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "text/encoding_converter.h"

namespace qv::core
{

// One for a scope, with its substitution character.
class PooledConverter
{
public:
    PooledConverter(const QVWChar* encodingName, int32_t substitutionChar);
    ~PooledConverter();
    PooledConverter(const PooledConverter&) = delete;
    PooledConverter& operator=(const PooledConverter&) = delete;

    // Of setting the character.
    QVRESULT Result() const { return m_result; }
    QVEncConverter& Get() { return m_converter; }

    struct Kept;

private:
    std::unique_ptr<Kept> m_kept; // null unless the converter was kept or is to be
    QVEncConverter m_converter;
    QVRESULT m_result = S_OK;
};

// Closes those that are kept, as before the library goes.
void EmptyEncodingPool();

} // namespace qv::core
