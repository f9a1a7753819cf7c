#pragma once

#include <vector>

#include "calleng/CallLegInfo.h"
#include "infra/CountedObjPtr.h"
#include "infra/MemAccount.h"
#include "infra/ReferenceCount.h"
#include "sipstack/DsHandle.h"
#include "sipstack/DsSipHeaders.h"
#include "sipstack/DsSipInviteMessage.h"

namespace Quorvex
{

class CallInfo;

/// The targets that the redirections (3xx) of one call have named: those still to be tried and those tried,
/// so that no target is ever offered twice. The legs of the targets share it, and some of them are the call
/// engine's: the object lives on any thread, its lists are the task thread's.
class SipRedirectionTargetData
{
public:
    QUORVEX_MEM_ACCOUNT("SipRedirectionTargetData");

    using Contact = DsHandle<DsSipContactHeader>;
    using Ptr = CountedObjPtr<SipRedirectionTargetData, TSReferenceCount>;

    /// From the first INVITE of the call, which must not be nil. Its Request-URI counts as tried.
    explicit SipRedirectionTargetData(const DsHandle<DsSipInviteMessage>& in_hInviteMsg);
    SipRedirectionTargetData(const SipRedirectionTargetData&) = delete;
    SipRedirectionTargetData& operator=(const SipRedirectionTargetData&) = delete;
    ~SipRedirectionTargetData();

    const DsHandle<DsSipInviteMessage>& getInviteMsg() const { return m_hInviteMsg; }

    /// Adds a copy of the Contact to the targets to try, unless its URL is among them or was tried already.
    void addContact(const Contact& in_hContact);

    /// Counts the targets that stand in the legs of a call as tried. False, reported, when one of them cannot
    /// be: it was tried before, or never offered.
    bool updateFrom(const CallInfo& in_callInfo);

    /// Puts the targets to try in ascending order of their q-values; targets of one q-value in any order.
    void sortTargets();

    const std::vector<Contact>& getToTry() const { return m_vToTry; }
    const std::vector<Contact>& getTried() const { return m_vTried; }

private:
    DsHandle<DsSipInviteMessage> m_hInviteMsg;
    std::vector<Contact> m_vToTry;
    std::vector<Contact> m_vTried;
};

/// Whether the left target is less preferred: its q-value is smaller. None counts as 0, and so does one that
/// is no number (reported).
bool isLessPreferred(const DsHandle<DsSipContactHeader>& in_hLeft,
                     const DsHandle<DsSipContactHeader>& in_hRight);

/// The leg that stands for one redirection target. The call engine places the call again by inviting on a
/// clone of it. A value, like its base.
class SipRedirectionLegInfo final : public CallLegInfo
{
public:
    QUORVEX_MEM_ACCOUNT("SipRedirectionLegInfo");

    explicit SipRedirectionLegInfo(SipRedirectionTargetData::Ptr in_pTargetData);

    SipRedirectionLegInfo* clone() const override { return new SipRedirectionLegInfo(*this); }

    /// Sets the target, and shows it under "sip.in.redirect.Contact", header name included.
    void setContact(const DsHandle<DsSipContactHeader>& in_hContactHeader);

    const SipRedirectionTargetData::Ptr& getTargetData() const { return m_pTargetData; }
    /// Nil until setContact().
    const DsHandle<DsSipContactHeader>& getContactHeader() const { return m_hContactHeader; }

private:
    SipRedirectionTargetData::Ptr m_pTargetData;
    DsHandle<DsSipContactHeader> m_hContactHeader;
};

}  // namespace Quorvex
