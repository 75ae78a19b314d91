// The pipes between a parent and the child that it starts.
#pragma once

#include <qvcore6/base.h>

namespace qv::core
{

// The child's ends go with this object; so do the parent's, unless the child has come to be.
class ChildPipes
{
public:
    static constexpr int kStreams = 3; // input, output, errors

    ChildPipes() = default;
    ~ChildPipes();
    ChildPipes(const ChildPipes&) = delete;
    ChildPipes& operator=(const ChildPipes&) = delete;

    // The child's handle for a stream. A slot that holds none gets the parent's end of a new pipe,
    // any other is the child's handle itself.
    QVHandle Connect(int stream, QVHandle& slot);
    void KeepParentEnds() { m_closeParentEnds = false; }

private:
    QVHandle m_parentEnds[kStreams] = {QV_HANDLE_NONE, QV_HANDLE_NONE, QV_HANDLE_NONE};
    QVHandle m_childEnds[kStreams] = {QV_HANDLE_NONE, QV_HANDLE_NONE, QV_HANDLE_NONE};
    bool m_closeParentEnds = true;
};

} // namespace qv::core
