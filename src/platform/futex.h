// Waiting in the kernel on a 32-bit word: of this process, or shared.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/deadline.h"

namespace qv::platform
{

// Looks for a moment, shorter than a sleep, whether another processor changes the word from the
// expected value. False at once with one processor, which would only be kept from it.
bool SpinUntilChanged(const std::atomic<std::uint32_t>& word, std::uint32_t expected);

// Sleeps while the word holds the expected value. Returns early at any time: callers test again.
void FutexWait(const std::atomic<std::uint32_t>& word, std::uint32_t expected);

// The same, but false once the deadline has passed. Interruptions by signals do not shorten it.
bool FutexWaitUntil(const std::atomic<std::uint32_t>& word, std::uint32_t expected,
                    const Deadline& deadline);

// The same on a word that processes share. The deadline must come some time.
bool SharedFutexWaitUntil(const std::atomic<std::uint32_t>& word, std::uint32_t expected,
                          const Deadline& deadline);
// Result: how many were woken.
int SharedFutexWake(const std::atomic<std::uint32_t>* word, int count);

// Wakes at most count sleepers. The word's memory may be gone already; only its address is used.
void FutexWake(const std::atomic<std::uint32_t>* word, int count);

} // namespace qv::platform
