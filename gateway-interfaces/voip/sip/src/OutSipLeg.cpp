#include "OutSipLeg.h"

#include <memory>
#include <mutex>

#include "DsVoipGatewayNetIf.h"
#include "VoipMedia.h"
#include "calleng/CallInfo.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipOutgoingCallinterface.h"

// The life of the call; its INVITE is built in OutSipLegInvite.cpp.

namespace Quorvex
{

OutSipLeg::OutSipLeg(DsVoipGatewayNetIf& in_voipGwNetIf)
    : SipLeg(in_voipGwNetIf), m_pNetIf(&in_voipGwNetIf), m_cdrLogger("quorvex.cdr.voip")
{
    static const StaticLogger s_logger("quorvex.voip.OutSipLeg");
    setLogger(CallLogger(s_logger));
}

OutSipLeg::OutSipLeg(VoipEndpointFactory& in_endpointFactory, const ROConfiguration& in_config)
    : SipLeg(in_endpointFactory, in_config), m_cdrLogger("quorvex.cdr.voip")
{
    static const StaticLogger s_logger("quorvex.voip.OutSipLeg");
    setLogger(CallLogger(s_logger));
}

OutSipLeg::~OutSipLeg()
{
    TRACE_SCOPE(getLogger(), "OutSipLeg::~OutSipLeg");
}

bool OutSipLeg::invite(const char* in_szCallKey,
                       const CallInfo& in_callInfo,
                       const char* in_szCallId,
                       CallLogger* in_pLogger)
{
    TRACE_SCOPE(getLogger(), "OutSipLeg::invite");
    std::unique_ptr<CallLogger> pLogger(in_pLogger);
    try
    {
        if (!createInvite(in_callInfo, in_szCallId) || !QUORVEX_ASSERT(getLogger(), m_pNetIf != nullptr))
        {
            return false;
        }
        const DsHandle<DsSipOutgoingCallinterface> hInterface(
            m_pNetIf->newSipOutgoingCallinterface(in_szCallKey));
        m_hOutCall = DsSipOutgoingCall::create(getInitialInviteMsg(), hInterface, pLogger.get());
        static_cast<void>(pLogger.release());
        return true;
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(getLogger(), "Exception occured: " << exception);
        return false;
    }
}

bool OutSipLeg::validateSdpInResponse(const DsHandle<DsSipResponse>& in_hResponse)
{
    TRACE_SCOPE(getLogger(), "OutSipLeg::validateSdpInResponse");
    return !in_hResponse.isNil() && in_hResponse->getBodyLength() != 0 &&
           in_hResponse->getBodyType().equalsIgnoreCase("application/sdp") &&
           m_pMedia->setSdpAnswer(in_hResponse);
}

bool OutSipLeg::send2XXAck(const DsHandle<DsSipDialog>& hDialog, const DsHandle<DsSipResponse>& hResponse)
{
    TRACE_SCOPE(getLogger(), "OutSipLeg::sendAck");
    if (!QUORVEX_ASSERT(getLogger(), !hDialog.isNil()) || !QUORVEX_ASSERT(getLogger(), !hResponse.isNil()) ||
        !QUORVEX_ASSERT(getLogger(), Sip::isSuccessResponse(hResponse->getStatusCode())))
    {
        return false;
    }
    try
    {
        hDialog->ack();
        // Nobody asks for the INVITE of an answered call.
        setInitialInviteMsg(DsHandle<DsSipInviteMessage>());
        return true;
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(getLogger(), "OutSipLeg::sendAck Exception occured: " << exception);
        return false;
    }
}

bool OutSipLeg::hangup()
{
    TRACE_SCOPE(getLogger(), "OutSipLeg::hangup");
    if (!QUORVEX_ASSERT(getLogger(), !m_hOutCall.isNil()))
    {
        return false;
    }
    try
    {
        m_hOutCall->hangup();
        m_cdrLogger.callEnd();
        return true;
    }
    catch (const DsException& exception)
    {
        QLOG_ERROR(getLogger(), "Failed to hangup SIP outbound call. Exception occured : " << exception);
        return false;
    }
}

DsHandle<DsSipDialog> OutSipLeg::getFirstDialog(const char* in_szRequest) const
{
    DsHandle<DsSipDialog> hDialog;
    if (!m_hOutCall.isNil())
    {
        // The stack's thread changes the list.
        const std::lock_guard lock(m_hOutCall->getMutex());
        hDialog = m_hOutCall->getDialog();
    }
    if (hDialog.isNil())
    {
        QLOG_ERROR(getLogger(), "There is no dialog to send the " << in_szRequest << " in");
    }
    return hDialog;
}

bool OutSipLeg::sendNotify(const ConnectionFailureType& in_failType)
{
    const DsHandle<DsSipDialog> hDialog = getFirstDialog("NOTIFY");
    return !hDialog.isNil() && SipLeg::sendNotify(hDialog, Fallible<unsigned int>(), in_failType);
}

bool OutSipLeg::sendNotify(unsigned int in_uiResponseCode)
{
    const DsHandle<DsSipDialog> hDialog = getFirstDialog("NOTIFY");
    return !hDialog.isNil() &&
           SipLeg::sendNotify(hDialog, in_uiResponseCode, Fallible<ConnectionFailureType>());
}

bool OutSipLeg::sendInfoMsg(const std::vector<Parameter>& in_vParameters)
{
    const DsHandle<DsSipDialog> hDialog = getFirstDialog("INFO");
    return !hDialog.isNil() && SipLeg::sendInfoMsg(hDialog, in_vParameters);
}

}  // namespace Quorvex
