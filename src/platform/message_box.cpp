#include <fcntl.h>
#include <pthread.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>

#include "platform/descriptor_handle.h"
#include "platform/diagnostics.h"
#include "platform/error.h"
#include "platform/no_cancellation.h"
#include "platform/utf8_text.h"

namespace qv::platform
{

namespace
{

constexpr std::string_view kQuestion = "\n(A)bort, (R)etry or (I)gnore? ";

// In the background a terminal answers with an error while these are blocked, and otherwise stops
// the whole process. That may become of it at any moment between two looks.
class WithoutStops
{
public:
    WithoutStops()
    {
        sigset_t stops;
        sigemptyset(&stops);
        sigaddset(&stops, SIGTTIN);
        sigaddset(&stops, SIGTTOU);
        pthread_sigmask(SIG_BLOCK, &stops, &m_before);
    }
    ~WithoutStops() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    WithoutStops(const WithoutStops&) = delete;
    WithoutStops& operator=(const WithoutStops&) = delete;

private:
    sigset_t m_before;
};

class Terminal
{
public:
    Terminal()
    {
        const NoCancellation noCancellation;
        m_file = AboveStandardNumbers(open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC));
    }
    ~Terminal()
    {
        const NoCancellation noCancellation;
        if (m_file >= 0) {
            close(m_file);
        }
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    bool IsOurs() const { return m_file >= 0 && tcgetpgrp(m_file) == getpgrp(); }
    void DropTyped() { tcflush(m_file, TCIFLUSH); }

    bool Write(std::string_view text)
    {
        while (!text.empty()) {
            const ssize_t written = write(m_file, text.data(), text.size());
            if (written > 0) {
                text.remove_prefix(static_cast<std::size_t>(written));
            } else if (written == 0 || errno != EINTR) {
                return false;
            }
        }
        return true;
    }

    // Reads a line of any length; *first is 0 for an empty one. False if there will be none.
    bool ReadFirstLetter(char* first)
    {
        *first = 0;
        for (;;) {
            char bytes[256];
            const ssize_t size = read(m_file, bytes, sizeof bytes);
            if (size < 0 && errno == EINTR) {
                continue;
            }
            if (size <= 0) {
                return false;
            }
            for (ssize_t i = 0; i < size; ++i) {
                // A program may have set the terminal to pass on the bare key.
                if (bytes[i] == '\n' || bytes[i] == '\r') {
                    return true;
                }
                if (*first == 0 && bytes[i] != ' ' && bytes[i] != '\t') {
                    *first = bytes[i];
                }
            }
        }
    }

private:
    int m_file = -1;
};

DWORD AnswerOf(char letter)
{
    switch (letter) {
    case 'a':
    case 'A':
        return IDABORT;
    case 'r':
    case 'R':
        return IDRETRY;
    case 'i':
    case 'I':
        return IDIGNORE;
    default:
        return 0;
    }
}

// The box as text, for one write.
class Box
{
public:
    Box(const WCHAR* title, DWORD titleSize, const WCHAR* text, DWORD textSize)
    {
        Add("\n");
        Add(title, titleSize, kBytes / 4);
        Add("\n\n");
        Add(text, textSize, kBytes - m_size - kQuestion.size());
        Add(kQuestion);
    }
    std::string_view Text() const { return {m_bytes, m_size}; }

private:
    static constexpr std::size_t kBytes = 4096;

    void Add(std::string_view text)
    {
        std::memcpy(m_bytes + m_size, text.data(), text.size());
        m_size += text.size();
    }
    void Add(const WCHAR* text, DWORD size, std::size_t most)
    {
        m_size += ToUtf8(text, size / sizeof(WCHAR), m_bytes + m_size, most).made;
    }

    char m_bytes[kBytes];
    std::size_t m_size = 0;
};

DWORD Ask(const Box& box)
{
    const WithoutStops withoutStops;
    Terminal terminal;
    if (!terminal.IsOurs()) {
        return 0;
    }
    terminal.DropTyped();
    std::string_view prompt = box.Text();
    char letter = 0;
    while (terminal.Write(prompt) && terminal.ReadFirstLetter(&letter)) {
        if (const DWORD answer = AnswerOf(letter)) {
            return answer;
        }
        prompt = kQuestion;
    }
    return 0;
}

} // namespace

BOOL WTSSendMessageW(const void* /*server*/, DWORD /*session*/, const WCHAR* title, DWORD titleSize,
                     const WCHAR* text, DWORD textSize, DWORD /*style*/, DWORD /*seconds*/,
                     DWORD* answer, BOOL /*wait*/)
{
    const KeepErrno keep;
    const DWORD given = Ask(Box(title, titleSize, text, textSize));
    if (given == 0) {
        SetLastError(ERROR_GEN_FAILURE);
        return kFalse;
    }
    *answer = given;
    return kTrue;
}

} // namespace qv::platform
