#include "host/computer_names.h"

#include <qvcore6/address.h>
#include <qvcore6/str.h>

#include <cstring>

#include "frame/boundary.h"
#include "locks/lock_guard.h"
#include "platform/locale.h"
#include "platform/section_hold.h"

namespace qv::core
{

namespace
{

using namespace platform;

constexpr std::size_t kLongestName = 1025; // bytes; getnameinfo(3) calls that NI_MAXHOST

struct Resolved
{
    Resolved() = default;
    ~Resolved() { platform::freeaddrinfo(chain); }
    Resolved(const Resolved&) = delete;
    Resolved& operator=(const Resolved&) = delete;

    addrinfo* chain = nullptr;
};

} // namespace

std::int16_t ComputerNames::IsThisComputer(const char* name)
{
    char key[kLongestName + 1];
    const std::size_t length = strnlen(name, kLongestName);
    std::memcpy(key, name, length);
    key[length] = '\0';
    QVStrToLowerA(key);
    std::int16_t answer = 0;
    Boundary([&] {
        const LockGuard hold(m_mutex.Get());
        if (!m_ready) {
            Seed();
        }
        if (!m_ready) {
            return;
        }
        const auto known = m_answers->find(std::string_view(key));
        if (known != m_answers->end()) {
            answer = known->second;
            return;
        }
        answer = Resolve(key);
        Enter(key, answer);
    });
    return answer;
}

void ComputerNames::Seed()
{
    WSADATA data;
    if (WSAStartup(kWinsockVersion, &data) != 0) {
        return;
    }
    char host[kLongestName + 1] = {};
    platform::gethostname(host, kLongestName);
    host[kLongestName] = '\0';
    QVStrToLowerA(host);
    QVGetMyAddressInformation(&m_myAddressChain, &m_localhostChain);
    for (const char* const own :
         {static_cast<const char*>(host), "localhost", "127.0.0.1", "::1", ""}) {
        Enter(own, 1);
    }
    m_ready = true;
}

void ComputerNames::Enter(std::string_view name, std::int16_t answer)
{
    const SectionHold changing(&m_changing);
    if (m_answers == nullptr) {
        m_answers = new Answers;
    }
    m_answers->try_emplace(std::string(name), answer);
}

std::int16_t ComputerNames::Resolve(const char* name) const
{
    Resolved resolved;
    if (QVgetaddrinfo(name, nullptr, nullptr, &resolved.chain) != 0) {
        return 0;
    }
    return QVCompareAddressInformation(resolved.chain, m_localhostChain) != 0 ||
                   QVCompareAddressInformation(resolved.chain, m_myAddressChain) != 0
               ? 1
               : 0;
}

void ComputerNames::PrepareFork()
{
    m_mutex.PrepareFork();
    EnterCriticalSection(&m_changing);
}

void ComputerNames::ParentAfterFork()
{
    LeaveCriticalSection(&m_changing);
    m_mutex.ParentAfterFork();
}

void ComputerNames::ChildAfterFork()
{
    LeaveCriticalSection(&m_changing);
    m_mutex.ChildAfterFork();
}

// No thread is inside, and none comes.
void ComputerNames::End()
{
    delete m_answers;
    m_answers = nullptr;
    m_ready = false;
    m_myAddressChain = nullptr;
    m_localhostChain = nullptr;
    m_mutex.Destroy();
}

constinit ComputerNames g_computerNames;

} // namespace qv::core

std::int16_t QVIsThisMyComputerA(const char* name)
{
    return qv::core::g_computerNames.IsThisComputer(name);
}

std::int16_t QVIsThisMyComputerW(const QVWChar* name)
{
    using namespace qv::platform;
    char narrow[qv::core::kLongestName + 1];
    const int made =
        WideCharToMultiByte(CP_ACP, 0, name, -1, narrow, sizeof narrow, nullptr, nullptr);
    return made != 0 ? QVIsThisMyComputerA(narrow) : std::int16_t{0};
}
