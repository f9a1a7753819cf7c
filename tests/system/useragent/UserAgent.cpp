#include "UserAgent.h"

#include <algorithm>
#include <iostream>
#include <sstream>

#include "Actor.h"
#include "Calls.h"
#include "infra/MemAccount.h"
#include "sipstack/DsException.h"

namespace Quorvex
{

bool UserAgent::start(const DsSipStackConfig& in_config, std::string& out_strError)
{
    return m_stack.start(in_config, makeDoorkeeper(*this), out_strError);
}

void UserAgent::stop(unsigned int in_uiTimeoutMs)
{
    m_stack.stop(in_uiTimeoutMs);
    m_timers.clear();  // what waits there holds on to dialogs and messages
}

void UserAgent::after(unsigned int in_uiMs, std::function<void()> in_job)
{
    m_timers.after(in_uiMs, [this, job = std::move(in_job)] { m_stack.post(job); });
}

void UserAgent::place(const std::string& in_strUri, const std::vector<Step>& in_vSteps)
{
    try
    {
        placeCall(*this, in_strUri, in_vSteps);
    }
    catch (const DsException& exception)
    {
        ++m_counters.m_thrown;
        std::clog << "not placed: " << exception.getReason() << '\n';
    }
}

bool UserAgent::placeCalls(const std::string& in_strUri,
                           const std::string& in_strScript,
                           unsigned long in_ulCount,
                           unsigned int in_uiPerSecond)
{
    std::vector<Step> steps;
    if (!parseScript(in_strScript, steps))
    {
        return false;
    }
    m_stack.post([=, this] { placeNext(in_strUri, steps, in_ulCount, in_uiPerSecond); });
    return true;
}

void UserAgent::placeNext(const std::string& in_strUri,
                          const std::vector<Step>& in_vSteps,
                          unsigned long in_ulCount,
                          unsigned int in_uiPerSecond)
{
    constexpr unsigned int kTickMs = 10;
    const unsigned long now =
        in_uiPerSecond == 0
            ? in_ulCount
            : std::min<unsigned long>(in_ulCount, std::max(1U, in_uiPerSecond * kTickMs / 1000));
    for (unsigned long i = 0; i < now; ++i)
    {
        place(in_strUri, in_vSteps);
    }
    if (now < in_ulCount)
    {
        after(std::max<unsigned int>(kTickMs, 1000 / in_uiPerSecond),
              [=, this] { placeNext(in_strUri, in_vSteps, in_ulCount - now, in_uiPerSecond); });
    }
}

void UserAgent::hangup(std::size_t in_uiCount)
{
    m_stack.post(
        [this, in_uiCount]
        {
            std::vector<Actor*> vActors(m_actors.begin(), m_actors.end());
            vActors.resize(std::min(vActors.size(), in_uiCount));
            for (Actor* const actor : vActors)
            {
                actor->hangup();
            }
        });
}

std::string UserAgent::describe() const
{
    const DsSipStackStatistics s = m_stack.getStatistics();
    const Counters& c = m_counters;
    std::ostringstream text;
    text << "inbound=" << c.m_inbound << " outbound=" << c.m_outbound << " answered=" << c.m_answered
         << " confirmed=" << c.m_confirmed << " ended=" << c.m_ended << " misreported=" << c.m_misreported
         << " cancelled=" << c.m_cancelled << " byes=" << c.m_byes << " failed=" << c.m_failed
         << " redirected=" << c.m_redirected << " pracks=" << c.m_pracks << " reliable=" << c.m_reliable
         << " reinvites_in=" << c.m_reinvitesIn << " reinvites_confirmed=" << c.m_reinvitesConfirmed
         << " reinvites_ok=" << c.m_reinvitesOk << " reinvites_refused=" << c.m_reinvitesRefused
         << " timeouts=" << c.m_timeOuts << " requests=" << c.m_requests << " crossed=" << c.m_crossed
         << " thrown=" << c.m_thrown << " calls=" << s.m_ulCalls << " dialogs=" << s.m_ulDialogs
         << " server_transactions=" << s.m_ulServerTransactions
         << " client_transactions=" << s.m_ulClientTransactions << " malformed=" << s.m_ulMalformed
         << " no_dialog=" << s.m_ulNoDialog481 << " refused=" << s.m_ulRefused;
    return text.str();
}

bool UserAgent::isClean(std::string& out_strLeft) const
{
    std::ostringstream left;
    const DsSipStackStatistics s = m_stack.getStatistics();
    const Counters& c = m_counters;
    if (c.m_ended != c.m_inbound + c.m_outbound)
    {
        left << " calls without end=" << c.m_inbound + c.m_outbound - c.m_ended;
    }
    if (c.m_misreported != 0)
    {
        left << " calls without exactly one closing report=" << c.m_misreported;
    }
    if (s.m_ulCalls + s.m_ulDialogs + s.m_ulServerTransactions + s.m_ulClientTransactions != 0)
    {
        left << " in the stack: " << s.m_ulCalls << " calls, " << s.m_ulDialogs << " dialogs, "
             << s.m_ulServerTransactions << " server and " << s.m_ulClientTransactions
             << " client transactions";
    }
    for (const auto& account : MemAccounts::snapshot())
    {
        if (account.m_ui64Objects != 0)
        {
            left << " account " << account.m_strName << '=' << account.m_ui64Objects;
        }
    }
    out_strLeft = left.str();
    return out_strLeft.empty();
}

}  // namespace Quorvex
