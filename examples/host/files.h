// Which files are looked at, and how they are read.
#pragma once

#include <qvcore6/file.h>
#include <qvcore6/result.h>

#include <cstdint>
#include <string>
#include <vector>

namespace host
{

struct TextFile
{
    std::u16string path;    // empty: the standard input
    std::string name;       // for the screen
    std::u16string charset; // empty: to be found out
};

// The files that the arguments name. A folder stands for its plain files, in the order of their
// names. Adds what is wrong to the problems.
std::vector<TextFile> FindFiles(const std::vector<std::string>& arguments,
                                std::vector<std::string>& problems);

// An open file, pipe or child process.
class Handle
{
public:
    Handle() = default;
    explicit Handle(QVHandle handle) : m_handle(handle) {}
    ~Handle() { Close(); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    QVHandle Get() const { return m_handle; }
    QVHandle* Place() { return &m_handle; }
    void Close();

private:
    QVHandle m_handle = QV_HANDLE_NONE;
};

// Opens the file for reading.
QVRESULT Open(const TextFile& file, Handle& handle);
// Reads into the piece, which says how much it may be and then how much it was: 0 at the end.
QVRESULT Read(const Handle& handle, std::vector<char>& piece);
// The same, but less than the piece may be is the end.
QVRESULT ReadFull(const Handle& handle, std::vector<char>& piece);
// All of it, or a failure.
QVRESULT Write(const Handle& handle, const char* bytes, std::size_t size);

} // namespace host
