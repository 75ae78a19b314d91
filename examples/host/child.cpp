#include "child.h"

#include <thread>
#include <unistd.h>
#include <vector>

#include "handles.h"

namespace host
{

namespace
{

constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

void Copy(const TextFile& file, Child& child)
{
    Handle text;
    std::vector<char> piece;
    if (Open(file, text) >= 0) {
        do {
            piece.resize(kPieceBytes);
        } while (Read(text, piece) >= 0 && !piece.empty() &&
                 Write(child.Input(), piece.data(), piece.size()) >= 0);
    }
    child.Input().Close(); // the program sees the end of its input
}

} // namespace

Child::Child(const std::u16string& program, const std::u16string& arguments)
{
    QVHandle streams[3] = {QV_HANDLE_NONE, QV_HANDLE_NONE, STDERR_FILENO};
    MustWork(QVProcessCreate(program.c_str(), arguments.c_str(), nullptr, nullptr, 0, streams,
                             &m_process),
             "a program cannot be started");
    *m_input.Place() = streams[0];
    *m_output.Place() = streams[1];
}

Child::~Child()
{
    m_input.Close();
    m_output.Close();
    QVProcessJoin(m_process, nullptr);
}

std::string Child::Output()
{
    std::string text;
    std::vector<char> piece(kPieceBytes);
    // Its end shows as a failure, as that of any pipe without a writer.
    while (Read(m_output, piece) >= 0 && !piece.empty()) {
        text.append(piece.data(), piece.size());
        piece.resize(kPieceBytes);
    }
    return text;
}

std::string Ask(const std::u16string& program, const std::u16string& arguments,
                const TextFile& file)
{
    Child child(program, arguments);
    // A program may answer before it has read all, so both ways are served at once.
    std::thread feeder([&] { Copy(file, child); });
    std::string answer = child.Output();
    feeder.join();
    return answer;
}

} // namespace host
