// Calls that the user agent places.

#include "Actor.h"
#include "Calls.h"
#include "UserAgent.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipOutgoingCall.h"

namespace Quorvex
{

namespace
{

using Call = DsHandle<DsSipOutgoingCall>;
using Dialog = DsHandle<DsSipDialog>;
using Response = DsHandle<DsSipResponse>;
using Transaction = DsHandle<DsSipServerTransaction>;

class OutCall final : public DsSipOutgoingCallinterface, public Actor
{
public:
    OutCall(UserAgent& in_agent, std::vector<Step> in_vSteps) : Actor(in_agent, std::move(in_vSteps))
    {
        ++m_agent.counters().m_outbound;
    }

    void begin(const Call& in_hCall)
    {
        m_hCall = in_hCall;
        begun();
        proceed();
    }

    void reliableProvisionalResponse(const Call&, const Dialog&, const Response&) override
    {
        noteReport();
        ++m_agent.counters().m_reliable;
    }
    void provisionalResponse(const Call&, const Dialog&, const Response& in_hResponse) override
    {
        noteReport();
        if (in_hResponse->getStatusCode() > 100)
        {
            happened(Step::Kind::eRinging);
        }
    }
    void failedToConnect(const Call&, const Dialog&, const Response&) override
    {
        noteReport();
        ++m_agent.counters().m_failed;
    }
    void redirect(const Call&, const Dialog&, const Response& in_hResponse) override
    {
        noteReport();
        ++m_agent.counters().m_redirected;
        const auto contact = in_hResponse->getContactHeader();
        if (follows() && !contact.isNil())
        {
            m_agent.place(std::string(contact->getURL()->getText()), steps());
        }
    }
    void succeeded(const Call&, const Dialog& in_hDialog, const Response&) override
    {
        noteReport();
        ++m_agent.counters().m_answered;
        ++m_agent.counters().m_confirmed;
        m_bAnswered = true;
        attempt([&] { in_hDialog->ack(); });
        if (isHungUp())
        {
            ++m_agent.counters().m_crossed;
            hangup();
            return;
        }
        happened(Step::Kind::eRinging);
        happened(Step::Kind::eAnswered);
    }
    void dialogTerminated(const Call&,
                          const Dialog& in_hDialog,
                          const DsHandle<DsSipMessage>& in_hMessage) override
    {
        const auto request = in_hMessage.dynamicCast<DsSipRequest>();
        if (!request.isNil())
        {
            ++m_agent.counters().m_byes;
            attempt([&] { in_hDialog->respondToBye(makeDs<DsSipResponse>(200, request)); });
        }
        if (m_bAnswered || in_hMessage.isNil())
        {
            noteClosing();
        }
        else
        {
            noteReport();  // the 487 of a cancelled INVITE
        }
    }
    void terminated(const Call&, const DsHandle<DsSipMessage>&) override { m_hCall = nullptr; }
    void unknownRequest(const Call&,
                        const Dialog&,
                        const Transaction& in_hTransaction,
                        const DsHandle<DsSipRequest>& in_hRequest) override
    {
        takeRequest(in_hTransaction, in_hRequest, 200);
    }
    void referRequest(const Call&,
                      const Dialog&,
                      const Transaction& in_hTransaction,
                      const DsHandle<DsSipRequest>& in_hRefer) override
    {
        takeRequest(in_hTransaction, in_hRefer, 603);
    }
    void referResponse(const Call&, const Dialog&, const Response&) override { noteReport(); }
    void notifyRequest(const Call&,
                       const Dialog&,
                       const Transaction& in_hTransaction,
                       const DsHandle<DsSipRequest>& in_hNotify) override
    {
        takeRequest(in_hTransaction, in_hNotify, 481);
    }
    void notifyResponse(const Call&, const Dialog&, const Response&) override { noteReport(); }
    void reinviteRequest(const Call&,
                         const Dialog& in_hDialog,
                         const DsHandle<DsSipInviteMessage>& in_hInvite) override
    {
        takeReinvite(in_hDialog, in_hInvite);
    }
    void reinviteCancel(const Call&, const Dialog&, const DsHandle<DsSipRequest>&) override { noteReport(); }
    void reinviteResponse(const Call&, const Dialog& in_hDialog, const Response& in_hResponse) override
    {
        takeReinviteResponse(in_hDialog, in_hResponse);
    }
    void reinviteAck(const Call&, const Dialog&, const DsHandle<DsSipAckMessage>&) override
    {
        noteReport();
        ++m_agent.counters().m_reinvitesConfirmed;
    }
    void reinviteTimeOut(const Call&, const Dialog&, const DsHandle<DsSipInviteMessage>&) override
    {
        takeTimeOut();
    }
    void onSessionTimeOut(const Call&, const Dialog&) override { noteReport(); }
    void onSessionRefreshTime(const Call&, const Dialog&) override { noteReport(); }
    void multipleResponse(const Call&, const Dialog&, const Response&) override { noteReport(); }
    void replacesDialog(const Call& in_hCall,
                        const Dialog& in_hReplaced,
                        const Dialog& in_hNew,
                        const DsHandle<DsSipInviteMessage>&) override
    {
        noteReport();
        attempt([&] { in_hCall->rejectReplaces(in_hReplaced, in_hNew); });
    }

private:
    ~OutCall() override = default;

    DsHandle<DsSipCall> call() const override
    {
        if (m_hCall.isNil())
        {
            throw DsException("the call is over");
        }
        return m_hCall;
    }
    // Steps of inbound calls have no meaning here.
    void answer(unsigned int, bool, bool) override { ++m_agent.counters().m_thrown; }
    void redirect() override { ++m_agent.counters().m_thrown; }

    Call m_hCall;
    bool m_bAnswered = false;
};

}  // namespace

void placeCall(UserAgent& in_agent, const std::string& in_strUri, const std::vector<Step>& in_vSteps)
{
    const auto invite = makeDs<DsSipInviteMessage>(in_strUri);
    invite->addHeader("From", "<sip:agent@127.0.0.1>");
    invite->addHeader("To", "<" + in_strUri + ">");
    invite->addHeader("Supported", "100rel");
    invite->setBody(kSdp, "application/sdp");
    const auto actor = makeDs<OutCall>(in_agent, in_vSteps);
    actor->begin(DsSipOutgoingCall::create(
        invite, DsHandle<DsSipOutgoingCallinterface>(actor), nullptr, &in_agent.stack()));
}

}  // namespace Quorvex
