#pragma once

#include <string>

namespace Quorvex
{

/// Where a dialog is at home: the same for thousands of them, which share it.
struct LocalEnd
{
    std::string m_strPort;     ///< the listen port that its requests leave from
    std::string m_strContact;  ///< for messages of the dialog that have none of their own
};

}  // namespace Quorvex
