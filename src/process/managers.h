// The way from an export to its manager. A start that failed leaves none: then this throws E_FAIL,
// so that an export refuses instead of crashing.
#pragma once

class CQVProcessManager;
class CQVThreadManager;

namespace qv::core
{

CQVProcessManager& ProcessManager();
CQVThreadManager& ThreadManager();

} // namespace qv::core
