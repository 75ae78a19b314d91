// The break into an attached debugger.
#pragma once

namespace qv::platform
{

extern "C" void DebugBreak();

} // namespace qv::platform
