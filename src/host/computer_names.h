// Which names mean this computer: a table that grows with every question.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "host/lazy_mutex.h"
#include "platform/critical_section.h"
#include "platform/network.h"

namespace qv::core
{

// Has neither constructor nor destructor to run.
class ComputerNames
{
public:
    std::int16_t IsThisComputer(const char* name);

    void PrepareFork();
    void ParentAfterFork();
    void ChildAfterFork();
    void End();

private:
    struct Hash
    {
        using is_transparent = void;
        std::size_t operator()(std::string_view name) const
        {
            return std::hash<std::string_view>()(name);
        }
    };
    using Answers = std::unordered_map<std::string, std::int16_t, Hash, std::equal_to<>>;

    void Seed();
    void Enter(std::string_view name, std::int16_t answer);
    std::int16_t Resolve(const char* name) const;

    LazyMutex m_mutex{"QVIsThisMyComputerA"};
    // Held for the table's changes alone, under the mutex. A fork takes this one: it need not wait
    // for a resolver, and its child finds the table whole.
    platform::CRITICAL_SECTION m_changing{};
    Answers* m_answers = nullptr;
    bool m_ready = false; // the names that need no look are in the table
    addrinfo* m_myAddressChain = nullptr;
    addrinfo* m_localhostChain = nullptr;
};

extern constinit ComputerNames g_computerNames;

} // namespace qv::core
