#include "infra/ParameterTrie.h"

#include <ostream>

namespace Quorvex
{

namespace
{

std::string lastPart(const std::string& in_strFullName)
{
    const std::size_t dot = in_strFullName.rfind('.');
    return dot == std::string::npos ? in_strFullName : in_strFullName.substr(dot + 1);
}

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
    : m_strFullName(std::move(in_strFullName)), m_strName(lastPart(m_strFullName))
{
}

ParameterTrieNode::~ParameterTrieNode() = default;

const ParameterTrieNode* ParameterTrieNode::getChild(std::string_view in_name) const
{
    for (const auto& pChild : m_vChildren)
    {
        if (pChild->m_strName == in_name)
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

ParameterTrie::ParameterTrie() : m_pRoot(std::make_unique<ParameterTrieNode>(""))
{
}

ParameterTrie::ParameterTrie(const ParameterTrie& in_other) : ParameterTrie()
{
    *this = in_other;
}

ParameterTrie::ParameterTrie(ParameterTrie&& in_other) noexcept : m_pRoot(std::move(in_other.m_pRoot))
{
    in_other.m_pRoot = std::make_unique<ParameterTrieNode>("");
}

ParameterTrie& ParameterTrie::operator=(const ParameterTrie& in_other)
{
    if (this != &in_other)
    {
        clear();
        in_other.forEach([this](const ParameterTrieNode& in_node)
                         { set(in_node.getFullName(), in_node.getValue()); });
    }
    return *this;
}

ParameterTrie& ParameterTrie::operator=(ParameterTrie&& in_other) noexcept
{
    m_pRoot.swap(in_other.m_pRoot);
    return *this;
}

ParameterTrie::~ParameterTrie() = default;

void ParameterTrie::clear()
{
    m_pRoot = std::make_unique<ParameterTrieNode>("");
}

ParameterTrieNode& ParameterTrie::obtain(std::string_view in_key)
{
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
