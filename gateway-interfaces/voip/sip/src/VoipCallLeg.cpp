#include "VoipCallLeg.h"

namespace Quorvex
{

const Logger& InLegSide::getLogger()
{
    static const StaticLogger s_logger("quorvex.voip.VoipInCallLegProxy");
    return s_logger;
}

const Logger& OutLegSide::getLogger()
{
    static const StaticLogger s_logger("quorvex.voip.VoipOutCallLegProxy");
    return s_logger;
}

}  // namespace Quorvex
