#pragma once

#include <string_view>

namespace Quorvex
{

/// A text that is not changed any more, in one block with the count of those who hold it: a pointer wide, and
/// copied without an allocation. A value; copies may be in different threads.
class SharedText
{
public:
    SharedText() = default;
    /// Throws std::length_error from 4 GiB on.
    explicit SharedText(std::string_view in_text);
    SharedText(const SharedText& in_other);
    SharedText(SharedText&& in_other) noexcept;
    SharedText& operator=(SharedText in_other) noexcept;
    ~SharedText();

    /// Valid as long as somebody holds the text.
    std::string_view view() const;

    friend bool operator==(const SharedText& in_a, const SharedText& in_b)
    {
        return in_a.view() == in_b.view();
    }

private:
    struct Block;

    // Null when empty.
    Block* m_pBlock = nullptr;
};

}  // namespace Quorvex
