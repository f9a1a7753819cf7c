#include "thread/IDGenerator.h"

#include "infra/Assertion.h"

namespace Quorvex
{

std::uint32_t StackIDGenerator::getID()
{
    if (m_vFree.empty())
    {
        m_vTaken.push_back(true);
        return static_cast<std::uint32_t>(m_vTaken.size() - 1);
    }
    const std::uint32_t uiID = m_vFree.back();
    m_vFree.pop_back();
    m_vTaken[uiID] = true;
    return uiID;
}

void StackIDGenerator::takeBack(std::uint32_t in_uiID)
{
    static const StaticLogger s_logger("quorvex.thread.IDGenerator");
    if (!QUORVEX_ASSERT_TEXT(
            s_logger, in_uiID < m_vTaken.size() && m_vTaken[in_uiID], "identifier is not out"))
    {
        return;
    }
    m_vTaken[in_uiID] = false;
    m_vFree.push_back(in_uiID);
}

std::uint32_t TSStackIDGenerator::getID()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_generator.getID();
}

void TSStackIDGenerator::takeBack(std::uint32_t in_uiID)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_generator.takeBack(in_uiID);
}

}  // namespace Quorvex
