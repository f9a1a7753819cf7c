#include "SipRedirection.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "calleng/CallInfo.h"
#include "infra/Assertion.h"
#include "infra/Logger.h"
#include "infra/TraceScope.h"

namespace Quorvex
{

namespace
{

using Contact = SipRedirectionTargetData::Contact;

const Logger& getRedirectionLogger()
{
    static const StaticLogger s_logger("quorvex.voip.SipRedirection");
    return s_logger;
}

/// The URL as an INVITE to it says it, which always names its transport.
DsSipURL withTransport(const DsSipURL& in_url)
{
    DsSipURL url(in_url);
    if (url.isSipURL() && url.getTransportParam().empty())
    {
        url.setTransportParam("udp");
    }
    return url;
}

/// Finds the Contact that denotes the same target as a URL.
class ContactMatcher
{
public:
    explicit ContactMatcher(const DsHandle<DsSipURL>& in_hUrl)
        : m_hUrl(in_hUrl.isNil() ? in_hUrl : makeDs<DsSipURL>(withTransport(*in_hUrl)))
    {
        QUORVEX_ASSERT(getRedirectionLogger(), !m_hUrl.isNil());
    }

    bool operator()(const Contact& in_hContact) const
    {
        const DsHandle<DsSipURL> hUrl = in_hContact.isNil() ? DsHandle<DsSipURL>() : in_hContact->getURL();
        return QUORVEX_ASSERT(getRedirectionLogger(), !m_hUrl.isNil()) &&
               QUORVEX_ASSERT(getRedirectionLogger(), !hUrl.isNil()) && *m_hUrl == withTransport(*hUrl);
    }

private:
    const DsHandle<DsSipURL> m_hUrl;
};

/// The place of the target that a Contact denotes; the list's end for none.
auto findTarget(const std::vector<Contact>& in_vContacts, const Contact& in_hContact)
{
    return std::find_if(in_vContacts.begin(), in_vContacts.end(), ContactMatcher(in_hContact->getURL()));
}

double getPreference(const DsSipContactHeader& in_contact)
{
    const DsString strQ = in_contact.getQValue();
    if (strQ.empty())
    {
        return 0.0;
    }
    double fQ = 0.0;
    const char* const pEnd = strQ.data() + strQ.size();
    const auto result = std::from_chars(strQ.data(), pEnd, fQ, std::chars_format::fixed);
    // A NaN would make an order of nothing.
    if (result.ec != std::errc() || result.ptr != pEnd || fQ != fQ)
    {
        QLOG_ERROR(getRedirectionLogger(),
                   "failed to convert " << strQ << "to a float q-value. Using 0.0 as q-value");
        return 0.0;
    }
    return fQ;
}

}  // namespace

SipRedirectionTargetData::SipRedirectionTargetData(const DsHandle<DsSipInviteMessage>& in_hInviteMsg)
    : m_hInviteMsg(in_hInviteMsg)
{
    TRACE_SCOPE(getRedirectionLogger(), "SipRedirectionTargetData ctor");
    if (QUORVEX_ASSERT(getRedirectionLogger(), !m_hInviteMsg.isNil()))
    {
        m_vTried.push_back(makeDs<DsSipContactHeader>(m_hInviteMsg->getRequestURL()));
    }
}

SipRedirectionTargetData::~SipRedirectionTargetData()
{
    TRACE_SCOPE(getRedirectionLogger(), "SipRedirectionTargetData dtor");
}

void SipRedirectionTargetData::addContact(const Contact& in_hContact)
{
    const Logger& logger = getRedirectionLogger();
    TRACE_SCOPE(logger, "SipRedirectionTargetData::addContact");
    if (!QUORVEX_ASSERT_TEXT(logger,
                             !in_hContact.isNil() && !in_hContact->getURL().isNil(),
                             "! in_hContact->getURL().isNil()"))
    {
        return;
    }
    const DsSipURL& url = *in_hContact->getURL();
    if (findTarget(m_vTried, in_hContact) != m_vTried.end())
    {
        QLOG_DEBUG(logger,
                   "Not adding URL " << url.getText()
                                     << " to the redirection target set because it has already been tried");
        return;
    }
    if (findTarget(m_vToTry, in_hContact) != m_vToTry.end())
    {
        QLOG_DEBUG(logger,
                   "Not adding URL " << url.getText()
                                     << " to the redirection target set because it is already there");
        return;
    }
    m_vToTry.emplace_back(in_hContact->clone());
    QLOG_DEBUG(logger, "Added URL " << url.getText() << " to the target set");
}

bool SipRedirectionTargetData::updateFrom(const CallInfo& in_callInfo)
{
    const Logger& logger = getRedirectionLogger();
    TRACE_SCOPE(logger, "SipRedirectionTargetData::updateFrom");
    for (std::size_t i = 0; i < in_callInfo.getNumLeg(); ++i)
    {
        const auto* pLeg = dynamic_cast<const SipRedirectionLegInfo*>(&in_callInfo.getLeg(i));
        if (pLeg == nullptr)
        {
            continue;
        }
        const Contact& hContact = pLeg->getContactHeader();
        if (!QUORVEX_ASSERT(logger, !hContact.isNil() && !hContact->getURL().isNil()))
        {
            return false;
        }
        auto found = findTarget(m_vTried, hContact);
        if (!QUORVEX_ASSERT(logger, found == m_vTried.end()))
        {
            return false;
        }
        m_vTried.push_back(hContact);
        found = findTarget(m_vToTry, hContact);
        if (!QUORVEX_ASSERT_TEXT(logger, found != m_vToTry.end(), "found != m_vToTry.end()"))
        {
            return false;
        }
        m_vToTry.erase(found);
    }
    if (logger.isEnabled(eDEBUG_LEVEL))
    {
        for (std::size_t i = 0; i < m_vTried.size(); ++i)
        {
            QLOG_DEBUG(logger, "SipRedirection : tried[" << i << "]=" << m_vTried[i]->getURL()->getText());
        }
        for (std::size_t i = 0; i < m_vToTry.size(); ++i)
        {
            QLOG_DEBUG(logger, "SipRedirection : to_try[" << i << "]=" << m_vToTry[i]->getURL()->getText());
        }
    }
    return true;
}

void SipRedirectionTargetData::sortTargets()
{
    std::sort(m_vToTry.begin(), m_vToTry.end(), isLessPreferred);
}

bool isLessPreferred(const DsHandle<DsSipContactHeader>& in_hLeft,
                     const DsHandle<DsSipContactHeader>& in_hRight)
{
    return QUORVEX_ASSERT_TEXT(getRedirectionLogger(), !in_hLeft.isNil(), "! lhs.isNil()") &&
           QUORVEX_ASSERT_TEXT(getRedirectionLogger(), !in_hRight.isNil(), "! rhs.isNil()") &&
           getPreference(*in_hLeft) < getPreference(*in_hRight);
}

SipRedirectionLegInfo::SipRedirectionLegInfo(SipRedirectionTargetData::Ptr in_pTargetData)
    : m_pTargetData(std::move(in_pTargetData))
{
}

void SipRedirectionLegInfo::setContact(const DsHandle<DsSipContactHeader>& in_hContactHeader)
{
    if (!QUORVEX_ASSERT_TEXT(
            getRedirectionLogger(), !in_hContactHeader.isNil(), "! m_hContactHeader.isNil()"))
    {
        return;
    }
    m_hContactHeader = in_hContactHeader;
    setParameter("sip.in.redirect.Contact", std::string(m_hContactHeader->getText()));
}

}  // namespace Quorvex
