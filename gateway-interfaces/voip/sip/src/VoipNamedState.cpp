#include "VoipNamedState.h"

#include "SipLeg.h"
#include "VoipMedia.h"
#include "VoipStateMachine.h"
#include "infra/Assertion.h"
#include "quorvex/CallInterface.h"

namespace Quorvex
{

void VoipNamedStateNoT::logUnexpectedEvent(const VoipEvent& in_event) const
{
    QLOG_WARN(getLogger(), "unexpected event (" << in_event << ") in state " << getName() << ". ignoring");
}

bool VoipNamedStateNoT::decline()
{
    if (!QUORVEX_ASSERT_TEXT(getLogger(), !m_pNotifiable.isNull(), "! m_pNotifiable.isNull()"))
    {
        return false;
    }
    m_pNotifiable->unprocessedEvent();
    return true;
}

template <class CallIfPtr>
VoipNamedState<CallIfPtr>::VoipNamedState(ObjectWithLogger<CallLogger>& in_logger,
                                          VoipStateMachine<CallIfPtr>* in_pSM)
    : VoipNamedStateNoT(in_logger), m_pSM(in_pSM)
{
    setNotifiable(in_pSM);
}

template <class CallIfPtr>
bool VoipNamedState<CallIfPtr>::internal_assert(const char* in_szFile, int in_iLine) const
{
    if (m_pSM == nullptr)
    {
        Assertion::report("m_pSM != 0", getVoipStateMachineLogger(), in_szFile, in_iLine);
        return false;
    }
    if (m_pSM->getSipLeg() == nullptr)
    {
        Assertion::report("m_pSM->getSipLeg() != 0", getVoipStateMachineLogger(), in_szFile, in_iLine);
        return false;
    }
    return true;
}

template <class CallIfPtr>
SipLeg& VoipNamedState<CallIfPtr>::getSipLeg() const
{
    return *m_pSM->getSipLeg();
}

template <class CallIfPtr>
VoipMedia& VoipNamedState<CallIfPtr>::getMedia() const
{
    return m_pSM->getSipLeg()->getMedia();
}

template <class CallIfPtr>
void VoipNamedState<CallIfPtr>::tellCallEngine() const
{
    const CallIfPtr pCallIf = m_pSM->getCallIf();
    if (!pCallIf.isNull())
    {
        pCallIf->disconnected();
    }
}

template class VoipNamedState<CountedObjPtr<CallInInterface>>;
template class VoipNamedState<CountedObjPtr<CallOutInterface>>;

}  // namespace Quorvex
