#pragma once

#include <iosfwd>
#include <string>

#include "infra/MemAccount.h"
#include "quorvex/CallTypes.h"
#include "quorvex/ConnectionFailureType.h"

namespace Quorvex::Sip
{

/// What SIP knows of a failure: the status code of the response that caused it.
class SipConnectionFailureType final : public ConnectionFailureImpl
{
public:
    QUORVEX_MEM_ACCOUNT("SipConnectionFailureType");

    /// Also for codes that are no failures; they do not count (see getResponseCode).
    explicit SipConnectionFailureType(unsigned int in_uiStatusCode) : m_uiStatusCode(in_uiStatusCode) {}

    unsigned int getStatusCode() const { return m_uiStatusCode; }

    SipConnectionFailureType* clone() const override { return new SipConnectionFailureType(*this); }
    /// "SIP <code>".
    std::ostream& write(std::ostream& out_stream) const override;

private:
    unsigned int m_uiStatusCode;
};

/// The status code that tells a SIP caller of a failure: that of the SIP detail when it has one from 400 to
/// 699, else the one that stands for the failure's code.
unsigned int getResponseCode(const ConnectionFailureType& in_failure);
/// The status code that answers a call connected in that way: 200 for a party, a machine or a fax, else a
/// failure.
unsigned int getResponseCode(Call::ConnectionType in_type);

/// What a NOTIFY says about the progress of a transfer (RFC 3515).
struct NotifyData
{
    std::string m_strFragment;           ///< "SIP/2.0 200 OK", a status line with its line end
    std::string m_strSubscriptionState;  ///< the value of Subscription-State
};

/// For a status code from 100 to 699; false for others.
bool getNotifyData(unsigned int in_uiResponseCode, NotifyData& out_data);
/// For a transfer that failed.
bool getNotifyData(const ConnectionFailureType& in_failure, NotifyData& out_data);

}  // namespace Quorvex::Sip
