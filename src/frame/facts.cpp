#include "frame/facts.h"

namespace qv::core
{

constinit std::int32_t s_isNT = 0;
constinit std::int16_t s_isWow64 = 0;
constinit platform::IMalloc* s_malloc = nullptr;
constinit RegDeleteKeyExFunction s_regDeleteKeyEx = nullptr;
constinit GetTimeFunction s_getPreciseTime = nullptr;
constinit std::uint32_t s_selfModule = 0;

} // namespace qv::core
