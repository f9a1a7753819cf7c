#pragma once

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "infra/CountedObjPtr.h"
#include "infra/Parameter.h"

namespace Quorvex
{

/// One node of a ParameterTrie: a part of a dotted key, with a value, children, or both.
class ParameterTrieNode
{
public:
    using Children = std::vector<std::unique_ptr<ParameterTrieNode>>;

    explicit ParameterTrieNode(std::string in_strFullName);
    ParameterTrieNode(const ParameterTrieNode&) = delete;
    ParameterTrieNode& operator=(const ParameterTrieNode&) = delete;
    ~ParameterTrieNode();

    /// The last part of the key ("audio" of "media.rtp.audio").
    std::string_view getName() const { return std::string_view(m_strFullName).substr(m_namePos); }
    /// The whole dotted key.
    const std::string& getFullName() const { return m_strFullName; }

    bool hasValue() const { return m_value.getType() != ParameterValue::UNDEFINED_TYPE; }
    const ParameterValue& getValue() const { return m_value; }
    /// Children in the order in which they were first set.
    const Children& getChildren() const { return m_vChildren; }
    /// The child of that name, or null.
    const ParameterTrieNode* getChild(std::string_view in_name) const;
    /// The node that a dotted key names below this one (this one for an empty key), or null.
    const ParameterTrieNode* find(std::string_view in_key) const;

private:
    friend class ParameterTrie;

    std::unique_ptr<ParameterTrieNode> clone() const;

    const std::string m_strFullName;
    const std::size_t m_namePos;
    ParameterValue m_value;
    Children m_vChildren;
};

/// A tree of parameters, addressed by dotted keys: "media.rtp.audio" is the child "audio" of "media.rtp".
/// Copies are independent, and cheap: they share the nodes until one of them is changed. One thread at a
/// time, or any number of readers; copies may be in different threads.
class ParameterTrie
{
public:
    /// Sets the value of a key, making the nodes on the way. An empty key is ignored.
    void set(std::string_view in_key, ParameterValue in_value);
    /// Makes a node without a value, so that an empty table or list is seen.
    void touch(std::string_view in_key);
    /// The node of a key, or null. An empty key names the root.
    const ParameterTrieNode* find(std::string_view in_key) const { return root().find(in_key); }
    /// The value of a key, or null when there is no node or it has none.
    const ParameterValue* findValue(std::string_view in_key) const;
    const ParameterTrieNode& root() const;
    bool empty() const { return root().getChildren().empty(); }
    void clear() { m_pRoot = nullptr; }

    /// Every key with a value, depth first, in the order of the children.
    template <class Visitor>
    void forEach(Visitor&& in_visitor) const
    {
        visit(root(), in_visitor);
    }
    template <class Visitor>
    static void visit(const ParameterTrieNode& in_node, Visitor& in_visitor)
    {
        if (in_node.hasValue())
        {
            in_visitor(in_node);
        }
        for (const auto& pChild : in_node.getChildren())
        {
            visit(*pChild, in_visitor);
        }
    }

private:
    ParameterTrieNode& obtain(std::string_view in_key);

    // Null while there is nothing.
    CountedObjPtr<ParameterTrieNode, TSReferenceCount> m_pRoot;
};

/// One "key=value" per line.
std::ostream& operator<<(std::ostream& out_stream, const ParameterTrie& in_trie);

}  // namespace Quorvex
