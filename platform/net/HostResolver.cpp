#include "net/HostResolver.h"

#include <ace/OS_NS_arpa_inet.h>
#include <ace/OS_NS_netdb.h>
#include <ace/os_include/os_netdb.h>
#include <ace/os_include/sys/os_socket.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "infra/Bell.h"
#include "infra/Logger.h"
#include "infra/ThreadName.h"
#include "infra/ThreadPriority.h"

namespace Quorvex::Net
{

namespace
{
using Clock = std::chrono::steady_clock;

const Logger& getLogger()
{
    static const StaticLogger s_logger("quorvex.net.HostResolver");
    return s_logger;
}

bool lookUpInSystem(const std::string& in_strHost, std::string& out_strAddress)
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* pFirst = nullptr;
    if (::getaddrinfo(in_strHost.c_str(), nullptr, &hints, &pFirst) != 0)
    {
        return false;
    }
    // The other side of most trunks speaks IPv4: it is taken when there is one.
    const addrinfo* pChosen = nullptr;
    for (const addrinfo* p = pFirst; p != nullptr; p = p->ai_next)
    {
        if (p->ai_family == AF_INET || (p->ai_family == AF_INET6 && pChosen == nullptr))
        {
            pChosen = p;
        }
        if (p->ai_family == AF_INET)
        {
            break;
        }
    }
    std::array<char, 256> szHost{};
    const bool bFound = pChosen != nullptr && ::getnameinfo(pChosen->ai_addr,
                                                            pChosen->ai_addrlen,
                                                            szHost.data(),
                                                            szHost.size(),
                                                            nullptr,
                                                            0,
                                                            NI_NUMERICHOST) == 0;
    if (bFound)
    {
        out_strAddress = szHost.data();
    }
    ::freeaddrinfo(pFirst);
    return bFound;
}

std::string toLower(std::string in_strText)
{
    std::transform(in_strText.begin(),
                   in_strText.end(),
                   in_strText.begin(),
                   [](unsigned char c)
                   { return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c); });
    return in_strText;
}
}  // namespace

/// Shared with the threads, which may outlive the resolver in a look-up that nothing can end.
struct HostResolver::Shared
{
    struct Waiter
    {
        Clock::time_point m_deadline;
        Callback m_callback;
    };
    struct Answer
    {
        std::string m_strAddress;
        Clock::time_point m_until;
        bool m_bPending = false;
        // A wait for this look-up has ended without an answer.
        bool m_bSlow = false;
        std::vector<Waiter> m_vWaiters;
    };

    using Calls = std::vector<std::pair<Callback, std::string>>;

    Options m_options;
    std::mutex m_mutex;
    std::condition_variable m_work;
    std::condition_variable m_timers;
    std::unordered_map<std::string, Answer> m_answers;
    std::deque<std::string> m_names;
    // Deadlines of waiters, soonest first.
    std::multimap<Clock::time_point, std::string> m_deadlines;
    std::size_t m_numThreads = 0;
    std::size_t m_numIdle = 0;
    bool m_bTimerThread = false;
    bool m_bClosed = false;

    static void call(Calls& io_calls)
    {
        for (auto& [callback, strAddress] : io_calls)
        {
            callback(strAddress);
        }
    }

    void makeRoom();
    bool begin(const std::shared_ptr<Shared>& in_pSelf, const std::string& in_strHost, Answer& io_answer);
    void serve();
    void serveDeadlines();
    void expireWaiters(Clock::time_point in_now, Calls& out_calls);
};

void HostResolver::Shared::makeRoom()
{
    if (m_answers.size() < m_options.m_maxAnswers)
    {
        return;
    }
    const auto now = Clock::now();
    for (auto it = m_answers.begin(); it != m_answers.end();)
    {
        it = !it->second.m_bPending && it->second.m_until <= now ? m_answers.erase(it) : std::next(it);
    }
    // All fresh: drop whichever come first, half of them, so that this is rare.
    for (auto it = m_answers.begin(); it != m_answers.end() && m_answers.size() > m_options.m_maxAnswers / 2;)
    {
        it = it->second.m_bPending ? std::next(it) : m_answers.erase(it);
    }
}

/// Has a thread look the name up. False when too many wait already. Under the lock.
bool HostResolver::Shared::begin(const std::shared_ptr<Shared>& in_pSelf,
                                 const std::string& in_strHost,
                                 Answer& io_answer)
{
    if (m_names.size() >= m_options.m_maxWaiting)
    {
        return false;
    }
    if (m_numIdle <= m_names.size() && m_numThreads < m_options.m_maxThreads)
    {
        try
        {
            std::thread([in_pSelf] { in_pSelf->serve(); }).detach();
            ++m_numThreads;
        }
        catch (const std::exception& exception)
        {
            QLOG_ERROR(getLogger(), "no thread to look names up: " << exception.what());
            if (m_numThreads == 0)
            {
                return false;
            }
        }
    }
    io_answer.m_bPending = true;
    io_answer.m_bSlow = false;
    m_names.push_back(in_strHost);
    m_work.notify_one();
    return true;
}

void HostResolver::Shared::serve()
{
    nameThisThread("host-resolver");
    // It may come from a thread that runs ahead of others.
    static_cast<void>(setThisThreadsNice(0));
    const LookUp lookUp = m_options.m_lookUp ? m_options.m_lookUp : LookUp(lookUpInSystem);
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;)
    {
        ++m_numIdle;
        m_work.wait(lock, [this] { return m_bClosed || !m_names.empty(); });
        --m_numIdle;
        if (m_bClosed)
        {
            --m_numThreads;
            return;
        }
        const std::string strHost = std::move(m_names.front());
        m_names.pop_front();
        lock.unlock();
        std::string strAddress;
        if (!lookUp(strHost, strAddress))
        {
            strAddress.clear();
        }
        QLOG_DEBUG(getLogger(), '"' << strHost << "\" is " << (strAddress.empty() ? "unknown" : strAddress));
        lock.lock();
        Answer& answer = m_answers[strHost];
        answer.m_strAddress = strAddress;
        answer.m_until =
            Clock::now() + (strAddress.empty() ? m_options.m_badAnswerLife : m_options.m_goodAnswerLife);
        answer.m_bPending = false;
        answer.m_bSlow = false;
        Calls calls;
        for (Waiter& waiter : answer.m_vWaiters)
        {
            calls.emplace_back(std::move(waiter.m_callback), strAddress);
        }
        answer.m_vWaiters.clear();
        if (m_bClosed)
        {
            --m_numThreads;
            return;
        }
        lock.unlock();
        call(calls);
        calls.clear();
        lock.lock();
    }
}

void HostResolver::Shared::expireWaiters(Clock::time_point in_now, Calls& out_calls)
{
    while (!m_deadlines.empty() && m_deadlines.begin()->first <= in_now)
    {
        const std::string strHost = std::move(m_deadlines.begin()->second);
        m_deadlines.erase(m_deadlines.begin());
        const auto found = m_answers.find(strHost);
        if (found == m_answers.end())
        {
            continue;
        }
        std::vector<Waiter>& vWaiters = found->second.m_vWaiters;
        const auto late = std::stable_partition(vWaiters.begin(),
                                                vWaiters.end(),
                                                [in_now](const Waiter& in_waiter)
                                                { return in_waiter.m_deadline > in_now; });
        for (auto waiter = late; waiter != vWaiters.end(); ++waiter)
        {
            found->second.m_bSlow = true;
            out_calls.emplace_back(std::move(waiter->m_callback), std::string());
        }
        vWaiters.erase(late, vWaiters.end());
    }
}

void HostResolver::Shared::serveDeadlines()
{
    nameThisThread("host-deadlines");
    static_cast<void>(setThisThreadsNice(0));
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_bClosed)
    {
        if (m_deadlines.empty())
        {
            m_timers.wait(lock);
            continue;
        }
        const auto next = m_deadlines.begin()->first;
        if (Clock::now() < next)
        {
            m_timers.wait_until(lock, next);
            continue;
        }
        Calls calls;
        expireWaiters(Clock::now(), calls);
        lock.unlock();
        call(calls);
        calls.clear();
        lock.lock();
    }
}

HostResolver& HostResolver::instance()
{
    // Never destroyed: threads may be in it while the process ends.
    static HostResolver& s_resolver = *new HostResolver(Options());
    return s_resolver;
}

HostResolver::HostResolver(Options in_options) : m_pShared(std::make_shared<Shared>())
{
    m_pShared->m_options = std::move(in_options);
}

HostResolver::~HostResolver()
{
    const std::lock_guard<std::mutex> lock(m_pShared->m_mutex);
    m_pShared->m_bClosed = true;
    m_pShared->m_work.notify_all();
    m_pShared->m_timers.notify_all();
}

bool HostResolver::isAddress(const std::string& in_strHost)
{
    std::array<unsigned char, 16> address{};
    if (!in_strHost.empty() && in_strHost.front() == '[' && in_strHost.back() == ']')
    {
        return ::inet_pton(AF_INET6, in_strHost.substr(1, in_strHost.size() - 2).c_str(), address.data()) ==
               1;
    }
    return ::inet_pton(AF_INET, in_strHost.c_str(), address.data()) == 1 ||
           ::inet_pton(AF_INET6, in_strHost.c_str(), address.data()) == 1;
}

bool HostResolver::resolve(const std::string& in_strHost, Duration in_timeout, std::string& out_strAddress)
{
    struct Result
    {
        std::mutex m_mutex;
        std::condition_variable m_done;
        bool m_bDone = false;
        std::string m_strAddress;
    };
    const auto pResult = std::make_shared<Result>();
    prefetch(in_strHost,
             in_timeout,
             [pResult](const std::string& in_strAddress)
             {
                 const std::lock_guard<std::mutex> lock(pResult->m_mutex);
                 pResult->m_bDone = true;
                 pResult->m_strAddress = in_strAddress;
                 pResult->m_done.notify_one();
             });
    Bell::Batch::ring();
    std::unique_lock<std::mutex> lock(pResult->m_mutex);
    // The deadline is the resolver's; a little on top, in case its thread is late.
    if (!pResult->m_done.wait_for(
            lock, in_timeout + std::chrono::milliseconds(50), [&] { return pResult->m_bDone; }) ||
        pResult->m_strAddress.empty())
    {
        return false;
    }
    out_strAddress = pResult->m_strAddress;
    return true;
}

void HostResolver::prefetch(const std::string& in_strHost, Duration in_timeout, Callback in_callback)
{
    if (isAddress(in_strHost))
    {
        const bool bBrackets = in_strHost.front() == '[';
        in_callback(bBrackets ? in_strHost.substr(1, in_strHost.size() - 2) : in_strHost);
        return;
    }
    const std::string strHost = toLower(in_strHost);
    std::string strAddress;
    {
        Shared& shared = *m_pShared;
        const std::lock_guard<std::mutex> lock(shared.m_mutex);
        shared.makeRoom();
        Shared::Answer& answer = shared.m_answers[strHost];
        const auto now = Clock::now();
        const bool bKnown = !answer.m_bPending && answer.m_until > now;
        // The longest name there can be has 253 characters.
        const bool bWait = !bKnown && strHost.size() <= 253 && in_timeout > Duration::zero() &&
                           !answer.m_bSlow && (answer.m_bPending || shared.begin(m_pShared, strHost, answer));
        if (bWait)
        {
            answer.m_vWaiters.push_back(Shared::Waiter{now + in_timeout, std::move(in_callback)});
            shared.m_deadlines.emplace(now + in_timeout, strHost);
            if (!shared.m_bTimerThread)
            {
                shared.m_bTimerThread = true;
                std::thread([pShared = m_pShared] { pShared->serveDeadlines(); }).detach();
            }
            shared.m_timers.notify_one();
            return;
        }
        strAddress = bKnown ? answer.m_strAddress : std::string();
    }
    in_callback(strAddress);
}

void HostResolver::clear()
{
    const std::lock_guard<std::mutex> lock(m_pShared->m_mutex);
    auto& answers = m_pShared->m_answers;
    for (auto it = answers.begin(); it != answers.end();)
    {
        it = it->second.m_bPending ? std::next(it) : answers.erase(it);
    }
}

}  // namespace Quorvex::Net
