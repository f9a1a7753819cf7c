#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "infra/CountedObjPtr.h"
#include "infra/Parameter.h"
#include "infra/SharedName.h"

namespace Quorvex
{

/// One node of a ParameterTrie: a part of a dotted key, with a value, children, or both. The nodes of a tree
/// stand in one row, depth first: a node is followed by what is below it, so that only the tree copies them.
class ParameterTrieNode
{
public:
    explicit ParameterTrieNode(SharedName in_key) : m_key(std::move(in_key)) {}

    /// The children of a node, in the order in which they were first set. Visits pointers to them.
    class Children
    {
    public:
        class Iterator
        {
        public:
            explicit Iterator(const ParameterTrieNode* in_pNode) : m_pNode(in_pNode) {}
            const ParameterTrieNode* operator*() const { return m_pNode; }
            Iterator& operator++()
            {
                m_pNode = m_pNode->behind();
                return *this;
            }
            bool operator==(const Iterator&) const = default;

        private:
            const ParameterTrieNode* m_pNode;
        };

        explicit Children(const ParameterTrieNode& in_parent) : m_pParent(&in_parent) {}
        Iterator begin() const { return Iterator(m_pParent + 1); }
        Iterator end() const { return Iterator(m_pParent->behind()); }
        bool empty() const { return m_pParent->m_uiDescendants == 0; }
        /// Counts them.
        std::size_t size() const;
        /// The child at that place, which must be below size().
        const ParameterTrieNode* operator[](std::size_t in_index) const;

    private:
        const ParameterTrieNode* m_pParent;
    };

    /// The last part of the key ("audio" of "media.rtp.audio").
    std::string_view getName() const { return m_key.getLastPart(); }
    /// The whole dotted key.
    const std::string& getFullName() const { return m_key.getText(); }

    bool hasValue() const { return m_value.getType() != ParameterValue::UNDEFINED_TYPE; }
    const ParameterValue& getValue() const { return m_value; }
    Children getChildren() const { return Children(*this); }
    /// The child of that name, or null.
    const ParameterTrieNode* getChild(std::string_view in_name) const;
    /// The node that a dotted key names below this one (this one for an empty key), or null.
    const ParameterTrieNode* find(std::string_view in_key) const;

private:
    friend class ParameterTrie;

    // Where the node stands that comes after all that is below this one.
    const ParameterTrieNode* behind() const { return this + 1 + m_uiDescendants; }

    SharedName m_key;
    ParameterValue m_value;
    std::uint32_t m_uiDescendants = 0;
};

/// A tree of parameters, addressed by dotted keys: "media.rtp.audio" is the child "audio" of "media.rtp".
/// Copies are independent, and cheap: they share the nodes until one of them is changed. A pointer to a node
/// is valid until the tree is changed. One thread at a time, or any number of readers; copies may be in
/// different threads.
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
    void clear() { m_pNodes = nullptr; }

    /// Every key with a value, depth first, in the order of the children.
    template <class Visitor>
    void forEach(Visitor&& in_visitor) const
    {
        visit(root(), in_visitor);
    }
    template <class Visitor>
    static void visit(const ParameterTrieNode& in_node, Visitor& in_visitor)
    {
        for (const ParameterTrieNode* pNode = &in_node; pNode != in_node.behind(); ++pNode)
        {
            if (pNode->hasValue())
            {
                in_visitor(*pNode);
            }
        }
    }

private:
    ParameterTrieNode& obtain(std::string_view in_key);
    std::size_t insert(std::size_t in_parent, std::string_view in_fullName);

    // The root first. Null while there is nothing.
    CountedObjPtr<std::vector<ParameterTrieNode>, TSReferenceCount> m_pNodes;
};

/// One "key=value" per line.
std::ostream& operator<<(std::ostream& out_stream, const ParameterTrie& in_trie);

}  // namespace Quorvex
