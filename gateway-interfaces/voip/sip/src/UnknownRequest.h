#pragma once

#include <utility>

#include "EventMethodObject.h"
#include "SipEvents.h"
#include "infra/Logger.h"
#include "sipstack/DsHandle.h"
#include "sipstack/DsSipRequest.h"
#include "sipstack/DsSipResponse.h"
#include "sipstack/DsSipServerTransaction.h"
#include "thread/TaskObjectProxy.h"

namespace Quorvex
{

/// A request within a call that the SIP stack has no callback of its own for, and what can be answered
/// without the call's machine. Task thread.
class UnknownRequestNoT
{
public:
    UnknownRequestNoT(DsHandle<DsSipServerTransaction> in_hTransaction, DsHandle<DsSipRequest> in_hRequest);
    UnknownRequestNoT(const UnknownRequestNoT&) = delete;
    UnknownRequestNoT& operator=(const UnknownRequestNoT&) = delete;
    virtual ~UnknownRequestNoT();

    /// Sends a response on the request's transaction. What the stack refuses is logged and not reported.
    void sendResponse(const DsHandle<DsSipResponse>& in_hResponse);

    /// Answers an INFO with 200. Always 0.
    int infoRequest();
    /// Answers an OPTIONS with 200 and what the gateway can do. Always 0.
    int optionsRequest();
    /// Answers any other method with 405 and the methods that are allowed.
    void unsupportedRequest();

    // The responses themselves; the stack's exceptions come through.
    static DsHandle<DsSipResponse> createOptionsResponse(const DsHandle<DsSipRequest>& in_hRequest);
    static DsHandle<DsSipResponse> createUnsupportedResponse(const DsHandle<DsSipRequest>& in_hRequest);

protected:
    const DsHandle<DsSipServerTransaction>& getTransaction() const { return m_hTransaction; }
    const DsHandle<DsSipRequest>& getRequest() const { return m_hRequest; }

private:
    template <class Create>
    void respond(Create in_create);

    const DsHandle<DsSipServerTransaction> m_hTransaction;
    const DsHandle<DsSipRequest> m_hRequest;
};

/// Brings such a request to the task thread. INFO is answered, then given to the machine; NOTIFY is the
/// machine's to answer; OPTIONS and the rest are answered without it. When the machine is gone by then, the
/// request is left to the SIP stack. Side: see EventMethodObject.
template <class Side>
class UnknownRequest_MO final : public UnknownRequestNoT,
                                public TaskObjectProxy<typename Side::Machine>::MethodObject,
                                public Accounted<"UnknownRequest_MO<>">
{
    using Base = typename TaskObjectProxy<typename Side::Machine>::MethodObject;

public:
    using ProxyData = typename TaskObjectProxy<typename Side::Machine>::ProxyData;
    using ObjectPtr = typename TaskObjectProxy<typename Side::Machine>::ObjectPtr;

    UnknownRequest_MO(const ProxyData& in_data,
                      typename Side::Call in_hCall,
                      DsHandle<DsSipDialog> in_hDialog,
                      const DsHandle<DsSipServerTransaction>& in_hTransaction,
                      const DsHandle<DsSipRequest>& in_hRequest)
        : UnknownRequestNoT(in_hTransaction, in_hRequest),
          Base(in_data),
          m_hCall(std::move(in_hCall)),
          m_hDialog(std::move(in_hDialog))
    {
    }

protected:
    int call_i(const ObjectPtr& in_pMachine) override
    {
        QLOG_TRACE(Side::getLogger(), "UnknownRequest_MO");
        // Methods are compared with their case: "info" is not INFO.
        const DsString strMethod = this->getRequest()->getMethod();
        if (strMethod == "INFO")
        {
            QLOG_TRACE(Side::getLogger(), "UnknownRequest_MO::infoRequest");
            this->infoRequest();
            return process(*in_pMachine, RequestEvent(EventType::eINFO, this->getRequest()));
        }
        if (strMethod == "OPTIONS")
        {
            return this->optionsRequest();
        }
        if (strMethod == "NOTIFY")
        {
            QLOG_TRACE(Side::getLogger(), "UnknownRequest_MO::notifyRequest");
            return process(*in_pMachine,
                           NotifyEvent<typename Side::Call>(
                               m_hCall, m_hDialog, this->getTransaction(), this->getRequest()));
        }
        this->unsupportedRequest();
        return eMO_DONE;
    }

private:
    template <class Machine>
    static int process(Machine& io_machine, const VoipEvent& in_event)
    {
        return io_machine.processEvent(in_event) ? eMO_DONE : eMO_FAILED;
    }

    const typename Side::Call m_hCall;
    const DsHandle<DsSipDialog> m_hDialog;
};

}  // namespace Quorvex
