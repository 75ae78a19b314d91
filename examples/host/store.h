// The class registrations of the example, in a store of its own.
#pragma once

#include <qvcore6/component.h>

#include <filesystem>
#include <string>

namespace host
{

// A failure in words; empty when there is none.
using Problem = std::string;

// Names the store for this process. Before the first registry call of the process.
Problem ChooseStore(const std::filesystem::path& folder);

// Says where the class lives, under its GUID and under its readable name.
Problem RegisterClass(const GUID& clsid, const char16_t* progId,
                      const std::filesystem::path& library);

// Where a registered class lives; empty if nobody can tell.
std::filesystem::path LibraryOf(const GUID& clsid);

// A result code in words.
std::string InWords(QVRESULT result);

std::string GuidText(const GUID& guid);

// UTF-8 to UTF-16 and back, for names.
std::u16string Widen(const std::string& text);
std::string Narrow(const std::u16string& text);

} // namespace host
