// The ways in which an alert reaches somebody.
#pragma once

#include <qvcore6/base.h>

#include <atomic>

namespace qv::core
{

// Plain words, for a debugger to read and write by name; the code goes through ReadWord and
// WriteWord.
extern std::uint32_t s_alertMethod;    // the standing method
extern std::int32_t s_alertResume;     // set from outside: ends the wait of QV_ALERT_WAIT
extern std::uint32_t s_alertSessionId; // where boxes are shown; all bits set before the first one

template <class T> T ReadWord(T& word)
{
    return std::atomic_ref<T>(word).load(std::memory_order_relaxed);
}

template <class T> void WriteWord(T& word, T value)
{
    std::atomic_ref<T>(word).store(value, std::memory_order_relaxed);
}

// Room for the terminator counted in; what does not fit is cut.
inline constexpr std::size_t kMessageUnits = 512;
inline constexpr std::size_t kTitleUnits = 64;
inline constexpr std::size_t kBoxUnits = 512;

void WriteLogEntry(const QVWChar* title, const QVWChar* message);
// The answer: 3 abort, 4 retry, 5 ignore, 0 if nobody could be asked.
std::uint32_t ShowMessageBox(const QVWChar* title, const QVWChar* message);
// Until something outside sets s_alertResume, which is cleared then.
void WaitForResume();

} // namespace qv::core
