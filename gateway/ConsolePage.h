#pragma once

namespace Quorvex
{

/// The operators' page, one HTML document that loads nothing but the HTTP interface's own paths.
extern const char* const kConsolePage;

}  // namespace Quorvex
