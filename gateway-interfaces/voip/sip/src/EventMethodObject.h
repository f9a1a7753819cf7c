#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

#include "VoipEvent.h"
#include "infra/Logger.h"
#include "infra/MemAccount.h"
#include "thread/TaskObjectProxy.h"

namespace Quorvex
{

/// A literal as a template argument.
template <std::size_t N>
struct FixedString
{
    // NOLINTNEXTLINE(google-explicit-constructor): so that a literal can stand where one is expected
    constexpr FixedString(const char (&in_sz)[N]) { std::copy_n(in_sz, N, m_sz); }

    constexpr std::string_view view() const { return {m_sz, N - 1}; }

    char m_sz[N]{};
};

/// Gives a class the allocation operators of a memory account.
template <FixedString Account>
class Accounted
{
public:
    QUORVEX_MEM_ACCOUNT(Account.m_sz);

    /// The account's name without its template arguments: what log lines call the class.
    static constexpr std::string_view getPlainName()
    {
        return Account.view().substr(0, Account.view().find('<'));
    }

protected:
    ~Accounted() = default;
};

/// An event that is nothing but its type.
template <EventType::eTYPE Type>
class PlainEvent final : public VoipEvent
{
public:
    PlainEvent() : VoipEvent(Type) {}
};

/// Carries an event from the thread that calls a proxy to the machine that stands behind the proxy: the event
/// is built with the method object, and given to the machine when the task's thread runs it. Nothing happens
/// when the machine is gone by then.
///
/// Side says whose proxy it is: the types Machine and (SIP) Call, and getLogger(), to which the line is
/// logged before the event is processed: the class's name at TRACE, unless Level and Text say otherwise.
template <class Side, class Event, FixedString Account, int Level = eTRACE_LEVEL, FixedString Text = "">
class EventMethodObject final : public TaskObjectProxy<typename Side::Machine>::MethodObject,
                                public Accounted<Account>
{
    using Base = typename TaskObjectProxy<typename Side::Machine>::MethodObject;

public:
    using ProxyData = typename TaskObjectProxy<typename Side::Machine>::ProxyData;
    using ObjectPtr = typename TaskObjectProxy<typename Side::Machine>::ObjectPtr;

    template <class... Args>
    explicit EventMethodObject(const ProxyData& in_data, Args&&... in_args)
        : Base(in_data), m_event(std::forward<Args>(in_args)...)
    {
    }

protected:
    int call_i(const ObjectPtr& in_pMachine) override
    {
        QUORVEX_LOG(Side::getLogger(),
                    Level,
                    (Text.view().empty() ? Accounted<Account>::getPlainName() : Text.view()));
        return in_pMachine->processEvent(m_event) ? eMO_DONE : eMO_FAILED;
    }

private:
    const Event m_event;
};

/// The same for an event that is made elsewhere; owns it.
template <class Side, FixedString Account>
class ReadyEventMethodObject final : public TaskObjectProxy<typename Side::Machine>::MethodObject,
                                     public Accounted<Account>
{
    using Base = typename TaskObjectProxy<typename Side::Machine>::MethodObject;

public:
    using ProxyData = typename TaskObjectProxy<typename Side::Machine>::ProxyData;
    using ObjectPtr = typename TaskObjectProxy<typename Side::Machine>::ObjectPtr;

    ReadyEventMethodObject(const ProxyData& in_data, std::unique_ptr<const VoipEvent> in_pEvent)
        : Base(in_data), m_pEvent(std::move(in_pEvent))
    {
    }

protected:
    int call_i(const ObjectPtr& in_pMachine) override
    {
        return in_pMachine->processEvent(*m_pEvent) ? eMO_DONE : eMO_FAILED;
    }

private:
    const std::unique_ptr<const VoipEvent> m_pEvent;
};

}  // namespace Quorvex
