// What the replaced registry call of the class tests does.
#pragma once

#include <qvcore6/component.h>

#include <functional>
#include <string>

namespace qv::test
{

extern int g_registryReads;
extern std::u16string g_registryKey; // of the last read
extern QVRESULT g_registryResult;    // a failure to answer, or S_OK
// Answers instead of the registry, if set.
extern std::function<void(void* data, uint32_t* size)> g_registryAnswer;
extern std::u16string g_loadedPath; // of the last load

inline constexpr GUID IID_Other = {0x0BAD, 0, 0, {}};

} // namespace qv::test
