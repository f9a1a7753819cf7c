#pragma once

#include <string>
#include <string_view>

#include "sipstack/DsSipMessage.h"
#include "sipstack/DsSipURL.h"

namespace Quorvex
{

/// A request of any method; INVITE, ACK, BYE, CANCEL, PRACK and REFER have classes of their own.
class DsSipRequest : public DsSipMessage
{
public:
    DsSipRequest& operator=(const DsSipRequest&) = delete;
    ~DsSipRequest() override;

    /// A request without headers. Made by create() it is of its method's class.
    DsSipRequest(std::string_view in_method, std::string_view in_requestURI);
    DsSipRequest(std::string_view in_method, const DsSipURL& in_requestURL);

    /// A request of the class of its method.
    static DsHandle<DsSipRequest> create(std::string_view in_method, std::string_view in_requestURI);

    bool isRequest() const override { return true; }
    DsString getMethod() const override { return m_strMethod; }
    std::string getStartLine() const override;

    /// The Request-URI as text, as received.
    const DsString& getRequestURI() const { return m_strRequestURI; }
    /// The Request-URI parsed, a copy. Throws a DsException when it cannot be read.
    DsHandle<DsSipURL> getRequestURL() const;
    void setRequestURI(std::string_view in_requestURI) { m_strRequestURI = DsString(in_requestURI); }
    void setRequestURL(const DsSipURL& in_requestURL) { m_strRequestURI = in_requestURL.getText(); }

    DsSipRequest* clone() const override;

protected:
    DsSipRequest(const DsSipRequest& in_other) = default;

private:
    DsString m_strMethod;
    DsString m_strRequestURI;
};

// NOLINTBEGIN(bugprone-macro-parentheses): names of classes
/// One class for each method that the layer treats on its own.
#define QUORVEX_REQUEST_CLASS(Class, Method)                                                    \
    class Class final : public DsSipRequest                                                     \
    {                                                                                           \
    public:                                                                                     \
        static constexpr const char* kMethod = Method;                                          \
        explicit Class(std::string_view in_requestURI) : DsSipRequest(Method, in_requestURI) {} \
        Class* clone() const override { return new Class(*this); }
// NOLINTEND(bugprone-macro-parentheses)

}  // namespace Quorvex
