// The requests that a leg sends within its dialog: INFO and NOTIFY.

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "SipLeg.h"
#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "sip/SipFailure.h"
#include "sipstack/DsException.h"
#include "sipstack/DsSipRequest.h"

namespace Quorvex
{

namespace
{
/// What a header name may be made of (RFC 3261 token).
bool isToken(std::string_view in_text)
{
    return !in_text.empty() &&
           std::all_of(in_text.begin(),
                       in_text.end(),
                       [](char c)
                       {
                           return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                                  (c >= '0' && c <= '9') ||
                                  std::string_view("-.!%*_+`'~").find(c) != std::string_view::npos;
                       });
}

/// The headers that make the request one of its dialog: a second one would break it.
bool belongsToDialog(std::string_view in_name)
{
    constexpr std::array<int, 9> kIDs = {DsSipHeaderID::eVIA,
                                         DsSipHeaderID::eFROM,
                                         DsSipHeaderID::eTO,
                                         DsSipHeaderID::eCALL_ID,
                                         DsSipHeaderID::eCSEQ,
                                         DsSipHeaderID::eROUTE,
                                         DsSipHeaderID::eRECORD_ROUTE,
                                         DsSipHeaderID::eMAX_FORWARDS,
                                         DsSipHeaderID::eCONTENT_LENGTH};
    return std::find(kIDs.begin(), kIDs.end(), DsSipHeader::getIDFromName(in_name)) != kIDs.end();
}

void addIdentification(DsSipMessage& io_message)
{
    if (const DsHandle<DsSipHeader>& hHeader = SipStack::instance()->getIdentificationHeader();
        !hHeader.isNil())
    {
        io_message.updateHeader(*hHeader);
    }
}
}  // namespace

bool SipLeg::fillInInfo(const DsHandle<DsSipRequest>& in_hInfo, const std::vector<Parameter>& in_vParameters)
{
    std::string strBody;
    std::string strBodyType = "text/plain";
    for (const Parameter& parameter : in_vParameters)
    {
        const ParameterValue& value = parameter.getValue();
        const std::string& strName = parameter.getName();
        std::string strValue;
        if (!QUORVEX_ASSERT(getLogger(), value.getType() == ParameterValue::STRING_TYPE) ||
            !QUORVEX_ASSERT(getLogger(), strName.empty() != true))
        {
            return false;
        }
        value.getString(strValue);
        if (strName == "body")
        {
            strBody = strValue;
        }
        else if (DsSipHeader::getIDFromName(strName) == DsSipHeaderID::eCONTENT_TYPE)
        {
            strBodyType = strValue;
        }
        else if (!isToken(strName) || belongsToDialog(strName))
        {
            QLOG_ERROR(getLogger(),
                       "INFO not sent: \"" << strName
                                           << "\" cannot be a header of it; expected a header name other "
                                              "than those that the dialog sets");
            return false;
        }
        else
        {
            in_hInfo->addHeader(DsSipUnknownHeader(strName, strValue));
        }
    }
    in_hInfo->setBody(strBody, strBodyType);
    return true;
}

bool SipLeg::isOver(const DsSipDialog& in_dialog, const char* in_szWhat) const
{
    const bool bOver = !in_dialog.isActive();
    if (bOver)
    {
        QLOG_INFO(getLogger(), in_szWhat << " not sent: the far end has hung up meanwhile");
    }
    return bOver;
}

bool SipLeg::sendInfoMsg(const DsHandle<DsSipDialog>& in_hDialog,
                         const std::vector<Parameter>& in_vParameters)
{
    TRACE_SCOPE(getLogger(), "SipLeg::sendInfoMsg");
    if (in_hDialog.isNil())
    {
        QLOG_ERROR(getLogger(), "SipLeg::sendInfoMsg : the call has no dialog to send an INFO in");
        return false;
    }
    try
    {
        const DsHandle<DsSipRequest> hInfo = in_hDialog->createRequest("INFO");
        if (isOver(*in_hDialog, "INFO"))
        {
            return false;
        }
        if (!QUORVEX_ASSERT(getLogger(), hInfo.isNil() == false) ||
            !QUORVEX_ASSERT(getLogger(), m_listenPort.m_hContact.isNil() != true))
        {
            return false;
        }
        setContact(*hInfo);
        addIdentification(*hInfo);
        if (!fillInInfo(hInfo, in_vParameters))
        {
            return false;
        }
        in_hDialog->info(hInfo);
        return true;
    }
    catch (const DsException& exception)
    {
        if (!isOver(*in_hDialog, "INFO"))
        {
            QLOG_ERROR(getLogger(), "SipLeg::sendInfoMsg : Ds Exception occured: " << exception);
        }
        return false;
    }
}

bool SipLeg::fillInNotify(const DsHandle<DsSipRequest>& in_hNotify,
                          const Fallible<unsigned int>& in_uiResponseCode,
                          const Fallible<ConnectionFailureType>& in_failType)
{
    Sip::NotifyData notifyData;
    const bool bFound =
        in_uiResponseCode.valid()
            ? QUORVEX_ASSERT_TEXT(getLogger(),
                                  Sip::getNotifyData(in_uiResponseCode.value(), notifyData),
                                  "Sip::getNotifyData(in_uiResponseCode, notifyData)")
            : QUORVEX_ASSERT_TEXT(getLogger(),
                                  in_failType.valid() && Sip::getNotifyData(in_failType.value(), notifyData),
                                  "Sip::getNotifyData(in_failType, notifyData)");
    if (!bFound)
    {
        return false;
    }
    in_hNotify->setBody(notifyData.m_strFragment, "message/sipfrag;version=2.0");
    in_hNotify->addHeader("Event", "refer");
    in_hNotify->addHeader("Subscription-State", notifyData.m_strSubscriptionState);
    return true;
}

bool SipLeg::sendNotify(const DsHandle<DsSipDialog>& in_hDialog,
                        const Fallible<unsigned int>& in_uiResponseCode,
                        const Fallible<ConnectionFailureType>& in_failType)
{
    TRACE_SCOPE(getLogger(), "SipLeg::sendNotify");
    if (in_hDialog.isNil())
    {
        QLOG_ERROR(getLogger(), "SipLeg::sendNotify : the call has no dialog to send a NOTIFY in");
        return false;
    }
    try
    {
        const DsHandle<DsSipRequest> hNotify = in_hDialog->createRequest("NOTIFY");
        if (isOver(*in_hDialog, "NOTIFY"))
        {
            return false;
        }
        if (!QUORVEX_ASSERT(getLogger(), hNotify.isNil() == false))
        {
            return false;
        }
        setContact(*hNotify);
        addIdentification(*hNotify);
        if (!fillInNotify(hNotify, in_uiResponseCode, in_failType))
        {
            return false;
        }
        in_hDialog->notify(hNotify);
        return true;
    }
    catch (const DsException& exception)
    {
        if (!isOver(*in_hDialog, "NOTIFY"))
        {
            QLOG_ERROR(getLogger(), "SipLeg::sendNotify : Ds Exception occured: " << exception);
        }
        return false;
    }
}

}  // namespace Quorvex
