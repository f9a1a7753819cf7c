#include "Actor.h"

#include <iostream>

#include "UserAgent.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipCall.h"

namespace Quorvex
{

const char* const kSdp =
    "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio 40000 RTP/AVP 0\r\n";

void Actor::attempt(const std::function<void()>& in_operation)
{
    try
    {
        in_operation();
    }
    catch (const DsException& exception)
    {
        ++m_agent.counters().m_thrown;
        std::clog << "refused: " << exception.getReason() << '\n';
    }
}

Actor::Actor(UserAgent& in_agent, std::vector<Step> in_vSteps)
    : m_agent(in_agent), m_vSteps(std::move(in_vSteps)), m_pAlive(std::make_shared<Actor*>(this))
{
    m_agent.add(*this);
}

Actor::~Actor()
{
    m_agent.remove(*this);
    *m_pAlive = nullptr;
    ++m_agent.counters().m_ended;
    const bool right = !m_bBegun || m_uiClosings == 1 || (m_bEarlyBye && m_uiClosings == 0);
    if (!right || m_bReportedAfterwards)
    {
        ++m_agent.counters().m_misreported;
    }
}

void Actor::noteReport()
{
    m_bReportedAfterwards = m_bReportedAfterwards || m_uiClosings != 0;
}

void Actor::noteClosing()
{
    ++m_uiClosings;
}

void Actor::hangup()
{
    m_bHungUp = true;
    attempt([&] { call()->hangup(); });
}

void Actor::later(unsigned int in_uiMs, void (Actor::*in_pDo)())
{
    m_agent.after(in_uiMs,
                  [alive = m_pAlive, in_pDo]
                  {
                      if (Actor* const actor = *alive)
                      {
                          (actor->*in_pDo)();
                      }
                  });
}

void Actor::happened(Step::Kind in_kind)
{
    if (m_bWaiting && m_iNext != 0 && m_vSteps[m_iNext - 1].m_kind == in_kind)
    {
        proceed();
    }
}

void Actor::proceed()
{
    m_bWaiting = false;
    while (!m_bWaiting && m_iNext < m_vSteps.size())
    {
        const Step& step = m_vSteps[m_iNext++];
        m_bWaiting = true;  // before the step, which may be over before it returns
        if (doStep(step))
        {
            m_bWaiting = false;
        }
    }
}

bool Actor::doStep(const Step& in_step)
{
    switch (in_step.m_kind)
    {
        case Step::Kind::eRing:
            answer(180, false, false);
            return true;
        case Step::Kind::eEarly:
            answer(183, true, false);
            return true;
        case Step::Kind::eReliable:
            answer(183, true, true);
            return false;
        case Step::Kind::eAnswer:
            ++m_agent.counters().m_answered;
            answer(200, true, false);
            return false;
        case Step::Kind::eRefuse:
            answer(in_step.m_uiNumber, false, false);
            return true;
        case Step::Kind::eRedirect:
            redirect();
            return true;
        case Step::Kind::eAfter:
            later(in_step.m_uiNumber, &Actor::proceed);
            return false;
        case Step::Kind::eReinvite:
            attempt(
                [&]
                {
                    const auto dialog = call()->getDialog();
                    const auto invite = dialog->createRequest("INVITE").dynamicCast<DsSipInviteMessage>();
                    invite->setBody(kSdp, "application/sdp");
                    dialog->reinvite(invite);
                });
            return false;
        case Step::Kind::eInfo:
            attempt(
                [&]
                {
                    const auto dialog = call()->getDialog();
                    dialog->info(dialog->createRequest("INFO"));
                });
            return true;
        case Step::Kind::eBye:
            hangup();
            return true;
        case Step::Kind::eRinging:
        case Step::Kind::eAnswered:
            return false;
        case Step::Kind::eSlowAnswer:
            m_uiSlowMs = in_step.m_uiNumber;
            return true;
        case Step::Kind::eFollow:
            m_bFollow = true;
            return true;
    }
    return true;
}

void Actor::takeReinvite(const DsHandle<DsSipDialog>& in_hDialog,
                         const DsHandle<DsSipInviteMessage>& in_hInvite)
{
    noteReport();
    ++m_agent.counters().m_reinvitesIn;
    const auto respond = [this, in_hDialog, in_hInvite]
    {
        attempt(
            [&] {
                in_hDialog->respondToReinvite(
                    makeDs<DsSipResponse>(200, in_hInvite, "", kSdp, "application/sdp"));
            });
    };
    if (m_uiSlowMs == 0)
    {
        respond();
        return;
    }
    m_agent.after(m_uiSlowMs,
                  [alive = m_pAlive, respond]
                  {
                      if (*alive != nullptr)
                      {
                          respond();
                      }
                  });
}

void Actor::takeReinviteResponse(const DsHandle<DsSipDialog>& in_hDialog,
                                 const DsHandle<DsSipResponse>& in_hResponse)
{
    noteReport();
    const unsigned int status = in_hResponse->getStatusCode();
    if (status < 200)
    {
        return;
    }
    if (status < 300)
    {
        ++m_agent.counters().m_reinvitesOk;
        attempt([&] { in_hDialog->ackReinvite(makeDs<DsSipAckMessage>(in_hResponse)); });
    }
    else
    {
        ++m_agent.counters().m_reinvitesRefused;
    }
    happened(Step::Kind::eReinvite);
}

void Actor::takeRequest(const DsHandle<DsSipServerTransaction>& in_hTransaction,
                        const DsHandle<DsSipRequest>& in_hRequest,
                        unsigned int in_uiStatus)
{
    noteReport();
    ++m_agent.counters().m_requests;
    attempt([&] { in_hTransaction->sendResponse(makeDs<DsSipResponse>(in_uiStatus, in_hRequest)); });
}

void Actor::takeTimeOut()
{
    noteReport();
    ++m_agent.counters().m_timeOuts;
    happened(Step::Kind::eReinvite);
}

}  // namespace Quorvex
