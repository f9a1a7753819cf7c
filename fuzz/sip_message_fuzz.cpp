// Messages, headers and URLs out of arbitrary bytes: a message or a DsException, and what is written parses
// again.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "sipstack/DsException.h"
#include "sipstack/DsSipAckMessage.h"
#include "sipstack/DsSipDigest.h"
#include "sipstack/DsSipMessage.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipURL.h"

namespace
{

using namespace Quorvex;

void check(bool in_bHolds, const char* in_szWhat)
{
    if (!in_bHolds)
    {
        std::fprintf(stderr, "does not hold: %s\n", in_szWhat);
        std::abort();
    }
}

void lookAt(const DsSipURL& in_url)
{
    const std::string text = in_url.getText();
    check(in_url == in_url, "a URL equals itself");
    try
    {
        const DsSipURL again(text);
        check(again.getText() == text, "the text of a URL parses to itself");
        check(again == in_url && again.hashCode() == in_url.hashCode(), "a URL equals its text");
    }
    catch (const DsException&)
    {
        check(false, "the text of a URL parses");
    }
}

void lookAt(const DsSipMessage& in_message)
{
    for (int id = 0; id < DsSipHeaderID::eNUM_IDS; ++id)
    {
        for (auto header = in_message.getHeaderByID(id); !header.isNil(); header = header->getNext())
        {
            header->getText();
            const DsHandle<DsSipHeader> copy(header->clone());
            check(copy->compareWith(*header) == 0, "a header equals its copy");
            if (const auto address = header.dynamicCast<DsSipAddressHeader>();
                !address.isNil() && !address->getURL().isNil())
            {
                lookAt(*address->getURL());
            }
        }
    }
    in_message.isSupported("100rel");
    in_message.getBodyType();
    in_message.getFromTag();
    in_message.getToTag();
}

void answer(const DsHandle<DsSipRequest>& in_hRequest)
{
    const auto response = makeDs<DsSipResponse>(200, in_hRequest, "", "v=0", "application/sdp");
    lookAt(*response);
    DsSipMessage::parse(response->getText());
    try
    {
        lookAt(*makeDs<DsSipAckMessage>(response));
        lookAt(*in_hRequest->getRequestURL());
        const DsHandle<DsSipRequest> copy(in_hRequest->clone());
        if (const auto via = copy->getViaHeader(); !via.isNil())
        {
            via->setBranchRFC3261();
            check(copy->getText().find(via->getBranch()) != std::string::npos,
                  "a changed Via stands in the text");
        }
    }
    catch (const DsException&)
    {
        // Headers that cannot be read.
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* in_pData, std::size_t in_size)
{
    const std::string_view text(reinterpret_cast<const char*>(in_pData), in_size);
    try
    {
        const auto message = DsSipMessage::parse(text);
        const std::string written = message->getText();
        check(DsSipMessage::parse(written)->getText() == written, "the text of a message parses to itself");
        lookAt(*message);
        if (const auto request = message.dynamicCast<DsSipRequest>(); !request.isNil())
        {
            answer(request);
        }
        else if (const auto response = message.dynamicCast<DsSipResponse>(); !response.isNil())
        {
            DsSipDigest::answer(*response,
                                "INVITE",
                                "sip:a@b",
                                {
                                    {"", "u", "p"}
            });
        }
        message->addHeader("Contact", "<sip:a@b>");
        message->removeHeader("Via");
        lookAt(*message);
    }
    catch (const DsException&)
    {
        // Refused.
    }
    try
    {
        lookAt(DsSipURL(text));
    }
    catch (const DsException&)
    {
        // Refused.
    }
    return 0;
}
