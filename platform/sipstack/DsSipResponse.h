#pragma once

#include <string_view>

#include "sipstack/DsSipMessage.h"
#include "sipstack/DsSipRequest.h"

namespace Quorvex
{

class DsSipResponse final : public DsSipMessage
{
public:
    DsSipResponse& operator=(const DsSipResponse&) = delete;
    ~DsSipResponse() override;

    /// A response to a request: Via, From, To, Call-ID and CSeq are the request's; Record-Route too from 101
    /// to 299, and Timestamp for 100. An empty reason takes the phrase that belongs to the code. Codes are
    /// 100 to 699; others throw a DsException.
    DsSipResponse(unsigned int in_uiStatusCode, const DsHandle<DsSipRequest>& in_hRequest);
    DsSipResponse(unsigned int in_uiStatusCode,
                  const DsHandle<DsSipRequest>& in_hRequest,
                  std::string_view in_reason);
    /// An empty body leaves the type out.
    DsSipResponse(unsigned int in_uiStatusCode,
                  const DsHandle<DsSipRequest>& in_hRequest,
                  std::string_view in_reason,
                  std::string_view in_body,
                  std::string_view in_bodyType);
    /// A response without headers.
    DsSipResponse(unsigned int in_uiStatusCode, std::string_view in_reason);

    bool isRequest() const override { return false; }
    /// The CSeq's method; empty when there is none.
    DsString getMethod() const override;
    std::string getStartLine() const override;

    unsigned int getStatusCode() const { return m_uiStatusCode; }
    const DsString& getReasonPhrase() const { return m_strReason; }
    void setReasonPhrase(std::string_view in_reason) { m_strReason = DsString(in_reason); }

    /// The phrase that belongs to a status code; "Unknown" for codes without one.
    static const char* getDefaultReason(unsigned int in_uiStatusCode);

    DsSipResponse* clone() const override;

protected:
    DsSipResponse(const DsSipResponse& in_other) = default;

private:
    unsigned int m_uiStatusCode;
    DsString m_strReason;
};

}  // namespace Quorvex
