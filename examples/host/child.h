// Another program that this one talks to over pipes.
#pragma once

#include <qvcore6/process.h>

#include <string>

#include "files.h"

namespace host
{

class Child
{
public:
    // The program's errors go where this one's go. Throws if it cannot be started.
    Child(const std::u16string& program, const std::u16string& arguments);
    // Waits for its end.
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    Handle& Input() { return m_input; }
    // All that it prints, up to its end.
    std::string Output();

private:
    Handle m_input;
    Handle m_output;
    QVHandle m_process = QV_HANDLE_NONE;
};

// What a program on this machine answers to the text of a file: the text goes there and the answer
// comes back over pipes. Throws.
std::string Ask(const std::u16string& program, const std::u16string& arguments,
                const TextFile& file);

} // namespace host
