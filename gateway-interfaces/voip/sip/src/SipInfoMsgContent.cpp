#include "SipInfoMsgContent.h"

#include <string>

#include "infra/Assertion.h"
#include "infra/TraceScope.h"
#include "sip-common/MySipUtils.h"

namespace Quorvex
{

std::unique_ptr<std::vector<Parameter>> getNewInfoMsgContent(const DsHandle<DsSipRequest>& in_hRequest)
{
    static const StaticLogger s_logger("quorvex.voip.SipInfoMsgContent");
    TRACE_SCOPE(s_logger, "getNewInfoMsgContent()");
    if (!QUORVEX_ASSERT(s_logger, in_hRequest.isNil() != true))
    {
        return nullptr;
    }
    auto pContent = std::make_unique<std::vector<Parameter>>();
    for (DsHandle<DsSipHeader> hHeader = in_hRequest->getHeaderByID(DsSipHeaderID::eUNKNOWN);
         !hHeader.isNil();
         hHeader = hHeader->getNext())
    {
        pContent->emplace_back(hHeader->getToken(), std::string(hHeader->getValueText()));
    }
    if (in_hRequest->getBodyLength() > 0)
    {
        if (const DsString strType = in_hRequest->getBodyType(); !strType.isEmpty())
        {
            pContent->emplace_back("Content-Type", std::string(strType));
        }
        pContent->emplace_back("body", MySipUtils::serializeSipMsgBody(in_hRequest));
    }
    return pContent;
}

}  // namespace Quorvex
