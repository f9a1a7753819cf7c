#include "infra/ParameterTrie.h"

#include <ostream>

namespace Quorvex
{

namespace
{

/// Splits the first part off a dotted key.
std::string_view takePart(std::string_view& io_key)
{
    const std::size_t dot = io_key.find('.');
    const std::string_view part = io_key.substr(0, dot);
    io_key = dot == std::string_view::npos ? std::string_view() : io_key.substr(dot + 1);
    return part;
}

}  // namespace

ParameterTrieNode::ParameterTrieNode(std::string in_strFullName)
    // The part behind the last dot; npos, when there is none, becomes 0.
    : m_strFullName(std::move(in_strFullName)), m_namePos(m_strFullName.rfind('.') + 1)
{
}

ParameterTrieNode::~ParameterTrieNode() = default;

const ParameterTrieNode* ParameterTrieNode::getChild(std::string_view in_name) const
{
    for (const auto& pChild : m_vChildren)
    {
        if (pChild->getName() == in_name)
        {
            return pChild.get();
        }
    }
    return nullptr;
}

const ParameterTrieNode* ParameterTrieNode::find(std::string_view in_key) const
{
    const ParameterTrieNode* pNode = this;
    while (!in_key.empty() && pNode != nullptr)
    {
        pNode = pNode->getChild(takePart(in_key));
    }
    return pNode;
}

std::unique_ptr<ParameterTrieNode> ParameterTrieNode::clone() const
{
    auto pClone = std::make_unique<ParameterTrieNode>(m_strFullName);
    pClone->m_value = m_value;
    pClone->m_vChildren.reserve(m_vChildren.size());
    for (const auto& pChild : m_vChildren)
    {
        pClone->m_vChildren.push_back(pChild->clone());
    }
    return pClone;
}

const ParameterTrieNode& ParameterTrie::root() const
{
    static const ParameterTrieNode s_nothing("");
    return m_pRoot.isNull() ? s_nothing : *m_pRoot;
}

ParameterTrieNode& ParameterTrie::obtain(std::string_view in_key)
{
    if (!m_pRoot.unique())
    {
        m_pRoot = root().clone();
    }
    ParameterTrieNode* pNode = m_pRoot.get();
    while (!in_key.empty())
    {
        const std::string_view part = takePart(in_key);
        // The node is ours, so is its child: only the look-up is const.
        auto* pChild = const_cast<ParameterTrieNode*>(pNode->getChild(part));
        if (pChild == nullptr)
        {
            std::string fullName = pNode->m_strFullName;
            fullName.append(fullName.empty() ? "" : ".").append(part);
            pChild = pNode->m_vChildren.emplace_back(std::make_unique<ParameterTrieNode>(std::move(fullName)))
                         .get();
        }
        pNode = pChild;
    }
    return *pNode;
}

void ParameterTrie::set(std::string_view in_key, ParameterValue in_value)
{
    if (!in_key.empty())
    {
        obtain(in_key).m_value = std::move(in_value);
    }
}

void ParameterTrie::touch(std::string_view in_key)
{
    obtain(in_key);
}

const ParameterValue* ParameterTrie::findValue(std::string_view in_key) const
{
    const ParameterTrieNode* pNode = find(in_key);
    return pNode != nullptr && pNode->hasValue() ? &pNode->getValue() : nullptr;
}

std::ostream& operator<<(std::ostream& out_stream, const ParameterTrie& in_trie)
{
    in_trie.forEach([&out_stream](const ParameterTrieNode& in_node)
                    { out_stream << in_node.getFullName() << '=' << in_node.getValue() << '\n'; });
    return out_stream;
}

}  // namespace Quorvex
