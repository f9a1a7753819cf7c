#include "EventSweep.h"

namespace Quorvex::Test
{

std::vector<StateCase> sharedStates()
{
    using namespace EventType;
    const std::string strIdle = "IDLE";
    const std::string strDisconnecting = "DISCONNECTING";
    return {
        {"CONNECTED::iMediaSetup",
         {{eAPI_KILL, strIdle},
          {eAPI_STOP, strDisconnecting},
          {eAPI_HANGUP, strDisconnecting},
          {eMEDIA_OP_STATUS, strDisconnecting},
          {eBYE, strIdle},
          {eTERMINATED_UPON_TIMEOUT, strIdle}}},
        {"CONNECTED::iConnected",
         {{eAPI_KILL, strIdle},
          {eAPI_STOP, strDisconnecting},
          {eAPI_HANGUP, strDisconnecting},
          {eREINVITE_REQUEST, strDisconnecting},
          {eREINVITE_ACK_WITH_SDP, strDisconnecting},
          {eBYE, strIdle},
          {eTERMINATED_UPON_TIMEOUT, strIdle}}},
        {"CONNECTED::iTransfering",
         {{eAPI_KILL, strIdle},
          {eAPI_STOP, strDisconnecting},
          {eAPI_HANGUP, strDisconnecting},
          {eAPI_TRANSFER_SUCCESS, "CONNECTED::iTransfered"},
          {eAPI_TRANSFER_FAILURE, "CONNECTED::iMediaSetup"},
          {eBYE, strIdle},
          {eMEDIA_OP_STATUS, strDisconnecting},
          {eTERMINATED_UPON_TIMEOUT, strIdle}}},
        {"CONNECTED::iTransfered",
         {{eAPI_KILL, strIdle},
          {eAPI_STOP, strDisconnecting},
          {eAPI_HANGUP, strDisconnecting},
          {eAPI_MEDIA_START_CMD, "CONNECTED::iMediaSetup"},
          {eBYE, strIdle},
          {eMEDIA_OP_STATUS, strDisconnecting},
          {eTERMINATED_UPON_TIMEOUT, strIdle}}},
        {"DISCONNECTING",
         {{eAPI_KILL, strIdle},
          {eBYE, strIdle},
          {e200_OK, strIdle},
          {e481_CALLEG_DOESNOTEXIST, strIdle},
          {eSIP_RESPONSE, strIdle},
          {eTERMINATED_UPON_TIMEOUT, strIdle}}},
        {"IDLE",                    {}        },
    };
}

}  // namespace Quorvex::Test
