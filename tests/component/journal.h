// What the test component says happens to it, in order.
#pragma once

#include <qvcore6/component.h>
#include <qvcore6/registry.h>
#include <qvcore6/result.h>

#include <string>
#include <vector>

#include "component/test_classes.h"

namespace qv::test
{

// Whether events are kept; they are at first. Keeping one allocates.
void KeepJournal(bool keep);
// The events since the last call, "name" or "name kind".
std::vector<std::string> TakeJournal();
std::string Event(std::string name, int kind);
long CountIn(const std::vector<std::string>& journal, const std::string& event);

// Sets the library path of a class in the registry.
QVRESULT Register(const GUID& clsid, const std::u16string& path);
// Registers the test component for every kind.
void RegisterAllKinds();

// The path of a test library.
std::u16string LibraryPath(const char* name);

// What TestWait does; nothing by default.
void SetWait(void (*wait)());

} // namespace qv::test
