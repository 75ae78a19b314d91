// Starting programs of the system, and what can be seen of children.
#pragma once

#include <gtest/gtest.h>
#include <qvcore6/process.h>
#include <qvcore6/result.h>

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "support/child_process.h"

namespace qv::test
{

using Streams = std::array<QVHandle, 3>;
inline constexpr Streams kPipes = {QV_HANDLE_NONE, QV_HANDLE_NONE, QV_HANDLE_NONE};

inline QVRESULT Start(const QVWChar* program, const QVWChar* arguments, Streams* streams,
                      QVHandle* process)
{
    return QVProcessCreate(program, arguments, nullptr, nullptr, 0,
                           streams != nullptr ? streams->data() : nullptr, process);
}

inline QVHandle StartShell(const std::u16string& script)
{
    QVHandle process;
    EXPECT_EQ(Start(u"/bin/sh", (u"-c \"" + script + u'"').c_str(), nullptr, &process), S_OK);
    return process;
}

inline uint32_t Join(QVHandle process)
{
    uint32_t code;
    EXPECT_EQ(QVProcessJoin(process, &code), S_OK);
    return code;
}

// A child that writes what it reads, until its input ends.
struct Copier
{
    explicit Copier(const QVWChar* program = u"/bin/cat")
        : result(Start(program, u"-", &streams, &process))
    {}
    void Wake()
    {
        for (QVHandle& stream : streams) {
            close(std::exchange(stream, -1));
        }
    }
    Streams streams = kPipes;
    QVHandle process = QV_HANDLE_NONE;
    QVRESULT result;
};

inline std::string ReadAll(QVHandle stream)
{
    std::string text;
    char bytes[4096];
    for (ssize_t size; (size = read(stream, bytes, sizeof bytes)) > 0;) {
        text.append(bytes, static_cast<std::size_t>(size));
    }
    close(stream);
    return text;
}

// What a program writes that is started without input.
inline std::string OutputOf(const QVWChar* program, const QVWChar* arguments,
                            const QVWChar* directory = nullptr,
                            const QVWChar* const* environment = nullptr)
{
    Streams streams = {QV_HANDLE_NONE, QV_HANDLE_NONE, 2};
    QVHandle process;
    if (QVProcessCreate(program, arguments, directory, environment, 0, streams.data(), &process)) {
        return "no process";
    }
    close(streams[0]);
    const std::string text = ReadAll(streams[1]);
    Join(process);
    return text;
}

inline pid_t IdOf(QVHandle process)
{
    std::ifstream info("/proc/self/fdinfo/" + std::to_string(process));
    std::string text;
    std::getline(info, text, 'P') && info >> text;
    pid_t id = 0;
    info >> id;
    return id;
}

// Of the children to be joined.
inline bool TableIsEmpty()
{
    QVHandle process;
    return QVProcessJoinChild(&process, nullptr) == E_FAIL;
}

inline bool HasNoChildren()
{
    siginfo_t info = {};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT | __WALL) < 0 && errno == ECHILD;
}

inline bool NothingIsLeft()
{
    return TableIsEmpty() && HasNoChildren();
}

// Each test leaves neither descriptors nor children.
class Process : public testing::Test
{
protected:
    ~Process() override
    {
        EXPECT_TRUE(TableIsEmpty());
        EXPECT_TRUE(Becomes(HasNoChildren));
        EXPECT_TRUE(Becomes([this] { return CountDescriptors() == m_descriptors; }));
    }

private:
    std::ptrdiff_t m_descriptors = CountDescriptors();
};

} // namespace qv::test
