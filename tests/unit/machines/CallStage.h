#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "ConnectedState.h"
#include "NetIfFixture.h"
#include "SipLeg.h"
#include "VoipMedia.h"
#include "gtest/gtest.h"

namespace Quorvex::Test
{

/// One call at a time through a running network interface: the far end is written out message by message, the
/// call engine's commands are given to the machine as events, the media engine answers or is silent.
template <class StateMachine>
class CallStage
{
public:
    using Machine = StateMachine;

    CallStage(const CallStage&) = delete;
    CallStage& operator=(const CallStage&) = delete;

    /// Gives the machine an event, on its thread; its result.
    bool feed(const VoipEvent& in_event)
    {
        bool bResult = false;
        EXPECT_TRUE(m_running.probe().run(
            [&]
            {
                bResult = m_pMachine->processEvent(in_event);
                m_strStateAfterEvent = readState();
            }));
        return bResult;
    }
    bool feed(EventType::eTYPE in_type) { return feed(VoipEvent(in_type)); }

    /// The state's name; the sub-state's in CONNECTED.
    std::string state()
    {
        std::string strState;
        EXPECT_TRUE(m_running.probe().run([&] { strState = readState(); }));
        return strState;
    }
    /// The state right after the event fed last, before anything else came.
    const std::string& stateAfterEvent() const { return m_strStateAfterEvent; }
    /// Waits for it; false, when another is what it stays in.
    bool waitFor(const std::string& in_strState)
    {
        std::string strState;
        const bool bReached = waitUntil([&] { return (strState = state()) == in_strState; });
        EXPECT_TRUE(bReached) << "in " << strState << " instead of " << in_strState;
        return bReached;
    }
    unsigned int queueSize()
    {
        unsigned int uiSize = 0;
        m_running.probe().run([&] { uiSize = m_pMachine->getEventQueueSize(); });
        return uiSize;
    }
    /// Waits until that many events wait in CONNECTED's own machine.
    bool waitForSubQueue(unsigned int in_uiSize)
    {
        return waitUntil(
            [&]
            {
                unsigned int uiSize = 0;
                m_running.probe().run(
                    [&]
                    {
                        const ConnectedPhase* const pConnected = connectedPhase();
                        uiSize = pConnected == nullptr ? 0 : pConnected->getNumWaiting();
                    });
                return uiSize == in_uiSize;
            });
    }

    /// Whether the media engine answers what it is asked; each operation ("create", "configure", "start",
    /// "stop").
    void answerMedia(bool in_bAnswer)
    {
        if (in_bAnswer)
        {
            m_running.media().setAnswer(nullptr);
        }
        else
        {
            m_running.media().setAnswer([](const ScriptedMediaEngine::Request&, MediaEndpointCallback&) {});
        }
    }

    /// Waits until the call's media say so.
    bool waitForMedia(bool (VoipMedia::*in_pIs)() const)
    {
        return waitUntil(
            [&]
            {
                bool bIs = false;
                m_running.probe().run([&] { bIs = (m_pMachine->getSipLeg()->getMedia().*in_pIs)(); });
                return bIs;
            });
    }

    /// What the call engine was told of this call, in order, after its beginning.
    std::vector<std::string> told()
    {
        std::vector<std::string> vTold = m_running.engine().getTold(m_strEngineCallId);
        vTold.erase(vTold.begin(), vTold.begin() + std::min(m_uiToldAtFirst, vTold.size()));
        return vTold;
    }
    bool waitForTold(const std::string& in_strWhat)
    {
        return waitUntil(
            [&]
            {
                const std::vector<std::string> vTold = told();
                return std::find(vTold.begin(), vTold.end(), in_strWhat) != vTold.end();
            });
    }

    RunningNetIf& running() { return m_running; }
    /// Runs a job on the call engine's thread with its leg of the present call.
    void say(const std::function<void(CallLeg&)>& in_job)
    {
        EXPECT_TRUE(m_running.engine().runWithCall(
            m_strEngineCallId, [&](ScriptedCall& io_call) { in_job(*io_call.getLeg()); }));
    }

protected:
    using ConnectedPhase = Connected<typename Machine::CallIfPtr, typename Machine::CallType, Machine>;

    /// `in_uiToldAtFirst`: what every call begins with.
    explicit CallStage(std::size_t in_uiToldAtFirst) : m_uiToldAtFirst(in_uiToldAtFirst)
    {
        m_running.engine().setScript(
            [](ScriptedCall& io_call, const std::string& in_strWhat)
            {
                if (in_strWhat == "gone")
                {
                    io_call.deleteLeg();
                }
            });
    }
    ~CallStage() = default;

    // Finds the machine of the engine's call; a call refused at once may have let go of it by then.
    template <class Machines>
    void findMachine(const std::string& in_strEngineCallId, const Machines& in_active)
    {
        m_strEngineCallId = in_strEngineCallId;
        m_running.probe().run(
            [&]
            {
                for (const auto& [strUUID, pMachine] : in_active)
                {
                    if (m_strEngineCallId == pMachine->getCallId())
                    {
                        m_pMachine = pMachine.get();
                    }
                }
            });
    }

    // The far end answers and acknowledges, by the function, until the network interface, which is stopping,
    // has stopped. False when it does not stop, or, unless killed, stops while a request of ours is
    // unanswered.
    template <class Follow>
    bool followStop(SipTestPeer& io_peer, bool in_bKilled, Follow in_follow)
    {
        bool bWaited = true;
        const bool bStopped = waitUntil(
            [&]
            {
                const std::string strMessage = io_peer.receive("", std::chrono::milliseconds(5));
                if (strMessage.empty())
                {
                    return m_running.netIf().getTaskState() == Task::STOPPED_STATE;
                }
                const bool bAwaitsAnswer =
                    strMessage.compare(0, 3, "SIP") != 0 && strMessage.compare(0, 3, "ACK") != 0;
                bWaited =
                    bWaited && (!bAwaitsAnswer || m_running.netIf().getTaskState() != Task::STOPPED_STATE);
                in_follow(strMessage);
                return false;
            });
        EXPECT_TRUE(bWaited || in_bKilled) << "stopped with a request unanswered";
        return bStopped && (bWaited || in_bKilled);
    }

    RunningNetIf m_running;
    Machine* m_pMachine = nullptr;

private:
    // Task thread.
    const ConnectedPhase* connectedPhase() const
    {
        const auto iter = m_pMachine->currentState();
        return iter == m_pMachine->endState()
                   ? nullptr
                   : dynamic_cast<const ConnectedPhase*>(iter->second.m_pState.get());
    }
    std::string readState() const
    {
        const ConnectedPhase* const pConnected = connectedPhase();
        return pConnected == nullptr ? m_pMachine->getCurrentStateName() : pConnected->getSubStateName();
    }

    std::string m_strEngineCallId;
    std::string m_strStateAfterEvent;
    const std::size_t m_uiToldAtFirst;
};

}  // namespace Quorvex::Test
