// Starting the test program, and what can be seen of children.
#pragma once

#include <gtest/gtest.h>
#include <qvcore6/process.h>
#include <qvcore6/result.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/child_process.h"

namespace qv::test
{

using Streams = std::array<QVHandle, 3>;
inline constexpr Streams kPipes = {QV_HANDLE_NONE, QV_HANDLE_NONE, QV_HANDLE_NONE};

inline std::u16string Wide(std::string_view ascii)
{
    return {ascii.begin(), ascii.end()};
}

inline QVRESULT Start(const std::string& arguments, Streams* streams, QVHandle* process,
                      const std::string& program = QV_TEST_CHILD)
{
    return QVProcessCreate(Wide(program).c_str(), Wide(arguments).c_str(), nullptr, nullptr, 0,
                           streams != nullptr ? streams->data() : nullptr, process);
}

// A child that runs until its input ends.
struct Sleeper
{
    struct NotYet
    {};
    explicit Sleeper(NotYet /*started by the test*/) {}
    Sleeper() { EXPECT_EQ(Start("copy", &streams, &process), S_OK); }
    void Wake()
    {
        for (QVHandle& stream : streams) {
            close(std::exchange(stream, -1));
        }
    }
    Streams streams = kPipes;
    QVHandle process = QV_HANDLE_NONE;
};

inline pid_t IdOf(QVHandle process)
{
    std::ifstream info("/proc/self/fdinfo/" + std::to_string(process));
    pid_t id = 0;
    for (std::string word; info >> word;) {
        if (word == "Pid:") {
            info >> id;
        }
    }
    return id;
}

inline std::string ReadAll(QVHandle stream)
{
    std::string text;
    char bytes[4096];
    for (ssize_t size; (size = read(stream, bytes, sizeof bytes)) > 0;) {
        text.append(bytes, static_cast<std::size_t>(size));
    }
    return text;
}

// What a program writes that is started without input.
inline std::string OutputOf(const QVWChar* program, const QVWChar* arguments,
                            const QVWChar* directory = nullptr,
                            const QVWChar* const* environment = nullptr)
{
    Streams streams = {QV_HANDLE_NONE, QV_HANDLE_NONE, 2};
    QVHandle process;
    const QVRESULT result =
        QVProcessCreate(program, arguments, directory, environment, 0, streams.data(), &process);
    if (result < 0) {
        return "no process: " + std::to_string(static_cast<std::uint32_t>(result));
    }
    close(streams[0]);
    std::string text = ReadAll(streams[1]);
    close(streams[1]);
    EXPECT_EQ(QVProcessJoin(process, nullptr), S_OK);
    return text;
}

inline std::vector<std::string> StringsIn(const std::string& text)
{
    std::vector<std::string> strings;
    for (std::size_t at = 0; at < text.size(); at += strings.back().size() + 1) {
        strings.emplace_back(text.c_str() + at);
    }
    return strings;
}

inline bool HasNoChildren()
{
    siginfo_t info = {};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) < 0 && errno == ECHILD;
}

} // namespace qv::test
