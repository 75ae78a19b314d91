// What the layer calls when the module is loaded, unloaded and forked. The module defines these.
#pragma once

#include "platform/types.h"

namespace qv::platform
{

inline constexpr DWORD DLL_PROCESS_DETACH = 0;
inline constexpr DWORD DLL_PROCESS_ATTACH = 1;

enum class ForkStage
{
    Prepare,
    Parent,
    Child,
};

extern "C"
{
    // The load notification. At detach a non-null reserved says that the process is ending while
    // other threads run on and may be inside the module: nothing that they can see may be
    // destroyed.
    BOOL DllMain(void* instance, DWORD reason, void* reserved);

    // No stage is told while another thread starts or stops the module.
    void ForkNotification(ForkStage stage);
}

} // namespace qv::platform
