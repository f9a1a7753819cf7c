// docs/states/ shows each machine as its tables stand in the code. Run with QUORVEX_WRITE_DRAWINGS=1 to write
// it anew.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include "CommonStateMachine.h"
#include "ConnectedState.h"
#include "InStates.h"
#include "OutStates.h"

namespace Quorvex
{
namespace
{

using CallIfPtr = InStateMachine::CallIfPtr;
using InDisconnecting = Disconnecting<CallIfPtr, InStateMachine::CallType>;
using InConnected = Connected<CallIfPtr, InStateMachine::CallType, InStateMachine>;

std::string nameOf(EventType::eTYPE in_type)
{
    const std::string strName = VoipEvent(in_type).getName();
    return strName.empty() ? "ePRACK" : strName;
}

// Mermaid takes no blanks or colons in names.
std::string nodeOf(const std::string& in_strState)
{
    std::string strNode =
        in_strState.substr(in_strState.rfind(':') == std::string::npos ? 0 : in_strState.rfind(':') + 1);
    for (char& c : strNode)
    {
        c = c == ' ' ? '_' : c;
    }
    return strNode;
}

/// Collects the rows of a machine's states as a table and as a drawing.
class Drawing
{
public:
    template <class State>
    void add(const std::string& in_strState)
    {
        for (const auto& row : State::rows())
        {
            const bool bAsked = row.m_guard != nullptr;
            m_table << "| " << in_strState << " | " << nameOf(row.m_event) << (bAsked ? " (guarded)" : "")
                    << " | " << nextOf(row) << " |\n";
            std::istringstream names(row.m_szNext != nullptr      ? row.m_szNext
                                     : row.m_szMayName != nullptr ? row.m_szMayName
                                                                  : "");
            for (std::string strNext; std::getline(names, strNext, '|');)
            {
                m_arrows.insert("    " + nodeOf(in_strState) + " --> " + nodeOf(strNext) + " : " +
                                nameOf(row.m_event) + "\n");
            }
        }
    }

    std::string text(const std::string& in_strTitle) const
    {
        std::string strText =
            "# " + in_strTitle +
            "\n\nWritten from the tables in the code by a test, which fails when they differ.\n"
            "Events that a state has no row for are logged and change nothing.\n\n"
            "```mermaid\nstateDiagram-v2\n";
        for (const std::string& strArrow : m_arrows)
        {
            strText += strArrow;
        }
        return strText + "```\n\n| state | event | next state |\n|---|---|---|\n" + m_table.str();
    }

private:
    template <class Row>
    static std::string nextOf(const Row& in_row)
    {
        if (in_row.m_szNext != nullptr)
        {
            return in_row.m_szNext;
        }
        std::string strNext = "stays";
        std::istringstream names(in_row.m_szMayName != nullptr ? in_row.m_szMayName : "");
        for (std::string strName; std::getline(names, strName, '|');)
        {
            strNext += " or " + strName;
        }
        return strNext;
    }

    std::ostringstream m_table;
    std::set<std::string> m_arrows;
};

void expectDrawn(const std::string& in_strFile, const std::string& in_strText)
{
    const std::string strPath = std::string(DRAWINGS_DIR) + "/" + in_strFile;
    if (std::getenv("QUORVEX_WRITE_DRAWINGS") != nullptr)
    {
        std::ofstream(strPath) << in_strText;
    }
    std::ostringstream drawn;
    drawn << std::ifstream(strPath).rdbuf();
    EXPECT_EQ(drawn.str(), in_strText) << strPath << " is not what the tables say: QUORVEX_WRITE_DRAWINGS=1";
}

TEST(StateDrawing, InboundMachineIsDrawnAsItIs)
{
    Drawing drawing;
    drawing.add<InInitial>("INITIAL");
    drawing.add<InvitingOut>("INVITING_OUT");
    drawing.add<Accepting>("ACCEPTING");
    drawing.add<ProgressingWithSDPOffer>("PROGRESSING_WITH_SDP_OFFER");
    drawing.add<InEarlyDialog>("EARLY_DIALOG");
    drawing.add<Answering>("ANSWERING");
    drawing.add<DisconnectingPendingConnection>("DISCONNECTING PENDING CONNECTION");
    drawing.add<InDisconnecting>("DISCONNECTING");
    expectDrawn("inbound.md", drawing.text("The machine of inbound calls"));
}

TEST(StateDrawing, OutboundMachineIsDrawnAsItIs)
{
    using OutDisconnecting = Disconnecting<OutStateMachine::CallIfPtr, OutStateMachine::CallType>;
    Drawing drawing;
    drawing.add<OutStateMachine::InitialState>("INITIAL");
    drawing.add<OutStateMachine::InvitingState>("INVITING");
    drawing.add<RemoteRinging>("REMOTE_RINGING");
    drawing.add<WaitForCPAResult>("WAIT_FOR_CPA_RESULT");
    drawing.add<OutStateMachine::CancelState>("CANCEL");
    drawing.add<OutDisconnecting>("DISCONNECTING");
    expectDrawn("outbound.md", drawing.text("The machine of outbound calls"));
}

TEST(StateDrawing, ConnectedPhaseIsDrawnAsItIs)
{
    Drawing drawing;
    drawing.add<InConnected>("CONNECTED");
    drawing.add<InConnected::iMediaSetup>("CONNECTED::iMediaSetup");
    drawing.add<InConnected::iConnected>("CONNECTED::iConnected");
    drawing.add<InConnected::iTransfering>("CONNECTED::iTransfering");
    drawing.add<InConnected::iTransfered>("CONNECTED::iTransfered");
    expectDrawn("connected.md", drawing.text("The connected phase of every call"));
}

}  // namespace
}  // namespace Quorvex
