#include "process/child_pipes.h"

#include <algorithm>

#include "frame/exception.h"
#include "platform/descriptor_handle.h"
#include "platform/pipe.h"
#include "platform/security.h"

using namespace qv::platform;

namespace qv::core
{

namespace
{

void Close(const QVHandle* ends)
{
    std::for_each_n(ends, ChildPipes::kStreams, [](QVHandle end) {
        if (end != QV_HANDLE_NONE) {
            CloseHandle(end);
        }
    });
}

} // namespace

ChildPipes::~ChildPipes()
{
    Close(m_childEnds);
    if (m_closeParentEnds) {
        Close(m_parentEnds);
    }
}

QVHandle ChildPipes::Connect(int stream, QVHandle& slot)
{
    if (slot != QV_HANDLE_NONE) {
        return slot;
    }
    const SECURITY_ATTRIBUTES attributes = {sizeof attributes, nullptr, kTrue};
    QVHandle readEnd = QV_HANDLE_NONE;
    QVHandle writeEnd = QV_HANDLE_NONE;
    if (CreatePipe(&readEnd, &writeEnd, &attributes, 0) == kFalse) {
        ThrowLastError();
    }
    const bool childReads = stream == 0;
    m_childEnds[stream] = childReads ? readEnd : writeEnd;
    m_parentEnds[stream] = childReads ? writeEnd : readEnd;
    if (SetHandleInformation(m_parentEnds[stream], HANDLE_FLAG_INHERIT, 0) == kFalse) {
        ThrowLastError();
    }
    slot = m_parentEnds[stream];
    return m_childEnds[stream];
}

} // namespace qv::core
