// The environment of a child as the platform takes it.
#pragma once

#include <qvcore6/base.h>

#include <memory>

namespace qv::core
{

// The strings, sorted, each with its terminator, and one more at the end.
class EnvironmentBlock
{
public:
    // Null for the parent's own; else an array that a null ends.
    explicit EnvironmentBlock(const QVWChar* const* strings);

    // Null for a null array.
    const QVWChar* Get() const { return m_block.get(); }

private:
    std::unique_ptr<QVWChar[]> m_block;
};

} // namespace qv::core
