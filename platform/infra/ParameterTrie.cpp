#include "infra/ParameterTrie.h"

#include <algorithm>
#include <memory>
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

// A call leg has two or three dozen nodes.
constexpr std::size_t kSpareNodes = 8;

}  // namespace

std::size_t ParameterTrieNode::Children::size() const
{
    std::size_t count = 0;
    for (Iterator child = begin(); child != end(); ++child)
    {
        ++count;
    }
    return count;
}

const ParameterTrieNode* ParameterTrieNode::Children::operator[](std::size_t in_index) const
{
    Iterator child = begin();
    while (in_index-- > 0)
    {
        ++child;
    }
    return *child;
}

const ParameterTrieNode* ParameterTrieNode::getChild(std::string_view in_name) const
{
    for (const ParameterTrieNode* pChild : getChildren())
    {
        if (pChild->getName() == in_name)
        {
            return pChild;
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

const ParameterTrieNode& ParameterTrie::root() const
{
    static const ParameterTrieNode s_nothing{SharedName("")};
    return m_pNodes.isNull() ? s_nothing : m_pNodes->front();
}

ParameterTrieNode& ParameterTrie::obtain(std::string_view in_key)
{
    if (!m_pNodes.unique())
    {
        auto pNodes = std::make_unique<std::vector<ParameterTrieNode>>();
        pNodes->reserve((m_pNodes.isNull() ? 1 : m_pNodes->size()) + kSpareNodes);
        if (m_pNodes.isNull())
        {
            pNodes->emplace_back(SharedName(""));
        }
        else
        {
            pNodes->assign(m_pNodes->begin(), m_pNodes->end());
        }
        m_pNodes = std::move(pNodes);
    }
    std::vector<ParameterTrieNode>& nodes = *m_pNodes;
    std::size_t index = 0;
    for (std::string_view rest = in_key; !rest.empty();)
    {
        const std::string_view part = takePart(rest);
        const ParameterTrieNode* pChild = nodes[index].getChild(part);
        if (pChild == nullptr)
        {
            index = insert(index, in_key.substr(0, static_cast<std::size_t>(part.end() - in_key.begin())));
        }
        else
        {
            index = static_cast<std::size_t>(pChild - nodes.data());
        }
    }
    return nodes[index];
}

// Puts a node below the one at a place, behind its other children; returns its place.
std::size_t ParameterTrie::insert(std::size_t in_parent, std::string_view in_fullName)
{
    std::vector<ParameterTrieNode>& nodes = *m_pNodes;
    const std::size_t place = in_parent + 1 + nodes[in_parent].m_uiDescendants;
    if (nodes.size() == nodes.capacity())
    {
        nodes.reserve(nodes.size() + std::max(kSpareNodes, nodes.size() / 4));
    }
    for (std::size_t i = 0; i <= in_parent; ++i)
    {
        // Those that have the parent below them, and itself.
        if (i + nodes[i].m_uiDescendants >= in_parent)
        {
            ++nodes[i].m_uiDescendants;
        }
    }
    nodes.emplace(nodes.begin() + static_cast<std::ptrdiff_t>(place), SharedName(in_fullName));
    return place;
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
