#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Quorvex
{

/// A name out of the few that come again and again: the key of a parameter of calls ("media.rtp.audio"), a
/// state ("CONNECTED"). The first thousand different ones are made once for the process and shared, so that
/// those who hold them pay for a pointer. Names may come from the network, so that there is a limit: later
/// ones, and long ones, are each holder's own. A value; any thread.
class SharedName
{
public:
    explicit SharedName(std::string_view in_text);
    SharedName(const SharedName& in_other);
    SharedName(SharedName&& in_other) noexcept;
    SharedName& operator=(SharedName in_other) noexcept;
    ~SharedName();

    const std::string& getText() const { return m_pText->m_strText; }
    /// The part behind the last dot; the whole text when there is none.
    std::string_view getLastPart() const
    {
        return std::string_view(m_pText->m_strText).substr(m_pText->m_lastPart);
    }

    friend bool operator==(const SharedName& in_a, const SharedName& in_b)
    {
        return in_a.m_pText == in_b.m_pText || in_a.getText() == in_b.getText();
    }

private:
    struct Text
    {
        const std::string m_strText;
        const std::size_t m_lastPart;
        const bool m_bShared;
    };

    static const Text* make(std::string_view in_text, bool in_bShared);
    static const Text* findShared(std::string_view in_text);

    const Text* m_pText;
};

}  // namespace Quorvex
