// Inbound calls of the user agent.

#include "Actor.h"
#include "Calls.h"
#include "UserAgent.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipIncomingCall.h"
#include "sipstack/DsSipIncomingCallinterface.h"
#include "sipstack/DsSipPrackMessage.h"

namespace Quorvex
{

namespace
{

using Call = DsHandle<DsSipIncomingCall>;

class InCall final : public DsSipIncomingCallinterface, public Actor
{
public:
    InCall(UserAgent& in_agent, std::vector<Step> in_vSteps) : Actor(in_agent, std::move(in_vSteps))
    {
        ++m_agent.counters().m_inbound;
    }

    void called(const Call& in_hCall, const DsHandle<DsSipInviteMessage>&) override
    {
        m_hCall = in_hCall;
        begun();
        proceed();
    }
    void prack(const Call&, const DsHandle<DsSipPrackMessage>&) override
    {
        noteReport();
        ++m_agent.counters().m_pracks;
        happened(Step::Kind::eReliable);
    }
    void callConfirmed(const Call&, const DsHandle<DsSipAckMessage>&) override
    {
        noteReport();
        ++m_agent.counters().m_confirmed;
        m_bConfirmed = true;
        happened(Step::Kind::eAnswer);
    }
    void terminated(const Call& in_hCall, const DsHandle<DsSipMessage>& in_hMessage) override
    {
        const DsHandle<DsSipRequest> request = in_hMessage.dynamicCast<DsSipRequest>();
        if (!request.isNil() && request->getMethod() == "CANCEL")
        {
            noteReport();
            ++m_agent.counters().m_cancelled;
            return;
        }
        if (!request.isNil())
        {
            ++m_agent.counters().m_byes;
            m_bConfirmed ? noteClosing() : noteEarlyBye();
            attempt([&] { in_hCall->respondToBye(makeDs<DsSipResponse>(200, request)); });
        }
        else
        {
            noteClosing();
        }
        if (!request.isNil() && !m_bConfirmed)
        {
            return;
        }
        m_hCall = nullptr;
    }
    void unknownRequest(const Call&,
                        const DsHandle<DsSipServerTransaction>& in_hTransaction,
                        const DsHandle<DsSipRequest>& in_hRequest) override
    {
        takeRequest(in_hTransaction, in_hRequest, 200);
    }
    void referRequest(const Call&,
                      const DsHandle<DsSipServerTransaction>& in_hTransaction,
                      const DsHandle<DsSipRequest>& in_hRefer) override
    {
        takeRequest(in_hTransaction, in_hRefer, 603);
    }
    void notifyResponse(const Call&, const DsHandle<DsSipResponse>&) override { noteReport(); }
    void reinviteRequest(const Call& in_hCall, const DsHandle<DsSipInviteMessage>& in_hInvite) override
    {
        takeReinvite(in_hCall->getDialog(), in_hInvite);
    }
    void reinviteCancel(const Call&, const DsHandle<DsSipRequest>&) override { noteReport(); }
    void reinviteResponse(const Call& in_hCall, const DsHandle<DsSipResponse>& in_hResponse) override
    {
        takeReinviteResponse(in_hCall->getDialog(), in_hResponse);
    }
    void reinviteAck(const Call&, const DsHandle<DsSipAckMessage>&) override
    {
        noteReport();
        ++m_agent.counters().m_reinvitesConfirmed;
    }
    void reinviteTimeOut(const Call&, const DsHandle<DsSipInviteMessage>&) override { takeTimeOut(); }
    void onSessionTimeOut(const Call&) override { noteReport(); }
    void onSessionRefreshTime(const Call&) override { noteReport(); }
    void replacesDialog(const Call& in_hCall,
                        const DsHandle<DsSipDialog>& in_hReplaced,
                        const DsHandle<DsSipDialog>& in_hNew,
                        const DsHandle<DsSipInviteMessage>&) override
    {
        noteReport();
        attempt([&] { in_hCall->rejectReplaces(in_hReplaced, in_hNew); });
    }

private:
    ~InCall() override = default;

    DsHandle<DsSipCall> call() const override
    {
        if (m_hCall.isNil())
        {
            throw DsException("the call is over");
        }
        return m_hCall;
    }
    void answer(unsigned int in_uiStatus, bool in_bWithSdp, bool in_bReliable) override
    {
        attempt(
            [&]
            {
                const Call call = m_hCall;
                if (call.isNil())
                {
                    return;  // over before the answer was due
                }
                const auto response =
                    in_bWithSdp
                        ? makeDs<DsSipResponse>(in_uiStatus, call->getInvite(), "", kSdp, "application/sdp")
                        : makeDs<DsSipResponse>(in_uiStatus, call->getInvite());
                in_bReliable ? call->sendReliableProvisionalResponse(response) : call->answer(response);
            });
    }
    void redirect() override
    {
        attempt(
            [&]
            {
                const auto response = makeDs<DsSipResponse>(302, m_hCall->getInvite());
                response->addHeader(
                    "Contact",
                    "<sip:answer@" + std::string(m_hCall->getInvite()->getLocalAddress().getHostAddress()) +
                        ":" + std::to_string(m_hCall->getInvite()->getLocalAddress().getPort()) + ">");
                m_hCall->answer(response);
            });
    }

    Call m_hCall;
    bool m_bConfirmed = false;
};

class Doorkeeper final : public DsSipNewCallinterface
{
public:
    explicit Doorkeeper(UserAgent& in_agent) : m_agent(in_agent) {}

    DsHandle<DsSipIncomingCall> newCall(const DsHandle<DsSipInviteMessage>& in_hInvite) override
    {
        std::vector<Step> steps;
        try
        {
            if (!parseScript(std::string(in_hInvite->getRequestURL()->getUser()), steps))
            {
                steps = {
                    {Step::Kind::eRefuse, 404}
                };
            }
        }
        catch (const DsException&)
        {
            steps = {
                {Step::Kind::eRefuse, 400}
            };
        }
        return makeDs<DsSipIncomingCall>(
            in_hInvite, DsHandle<DsSipIncomingCallinterface>(makeDs<InCall>(m_agent, std::move(steps))));
    }

private:
    UserAgent& m_agent;
};

}  // namespace

DsHandle<DsSipNewCallinterface> makeDoorkeeper(UserAgent& in_agent)
{
    return DsHandle<DsSipNewCallinterface>(makeDs<Doorkeeper>(in_agent));
}

}  // namespace Quorvex
