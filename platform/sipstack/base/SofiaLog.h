#pragma once

namespace Quorvex
{

/// Sends what the base library says about itself to the logger "quorvex.sip.base", at DEBUG; once per
/// process. It says most about what peers do wrong, so it must not reach the log of a system in use line by
/// line.
void redirectSofiaLog();

}  // namespace Quorvex
