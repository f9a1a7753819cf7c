#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <iosfwd>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "sipstack/DsHandle.h"
#include "sipstack/DsInetAddress.h"
#include "sipstack/DsObject.h"
#include "sipstack/DsSipHeaders.h"
#include "sipstack/DsString.h"

namespace Quorvex
{

class DsSipRequest;
class DsSipResponse;

/// A SIP message. It keeps what was received: headers in their order with their spelling, unknown ones among
/// them, and the bytes of the body. Header objects are made when they are asked for.
///
/// Threads: any number may read one message; changing it, or a header that it gave out, is for its one owner.
class DsSipMessage : public DsObject
{
public:
    DsSipMessage& operator=(const DsSipMessage&) = delete;
    ~DsSipMessage() override;

    QUORVEX_MEM_ACCOUNT("DsSipMessage");

    /// One header line.
    struct HeaderLine
    {
        int m_iID;
        std::string_view m_name;  ///< as received; valid until the message changes
        std::string m_strValue;   ///< all values of the line, without line folds
    };

    /// Parses a whole message; the class of the result follows its method (DsSipInviteMessage, ...).
    /// Throws a DsException that names the fault. Lines may end with LF alone; the body is what
    /// Content-Length says, or the rest.
    static DsHandle<DsSipMessage> parse(std::string_view in_text);

    virtual bool isRequest() const = 0;
    /// The request's method, or that of the request which a response answers; exact case.
    virtual DsString getMethod() const = 0;
    /// The first line without its end.
    virtual std::string getStartLine() const = 0;

    // --- headers ---

    std::size_t getNumHeaders() const { return m_vLines.size(); }
    /// The line at a place below getNumHeaders(), in message order.
    HeaderLine getHeaderAt(std::size_t in_index) const;
    /// Appends the header lines that are wanted, in message order, each with its line end and without folds.
    void appendHeaders(std::string& io_strText, const std::function<bool(int in_iID)>& in_isWanted) const;

    /// The first header of an identifier (DsSipHeaderID), nil when absent; getNext() leads to the others. A
    /// known header whose value cannot be read comes as a DsSipUnknownHeader that holds the reason.
    DsHandle<DsSipHeader> getHeaderByID(int in_iID) const;
    /// The first header of a name (any case, long or compact), nil when absent.
    DsHandle<DsSipHeader> getHeader(std::string_view in_name) const;
    bool hasHeader(std::string_view in_name) const;
    /// The value of the first line of a name, empty when absent.
    DsString getHeaderValue(std::string_view in_name) const;

    /// The first header of a class, nil when absent: getTyped<DsSipRSeqHeader>(). Throws a DsException when
    /// there is one that cannot be read.
    template <class H>
    DsHandle<H> getTyped() const
    {
        return getReadable(H::kID).template dynamicCast<H>();
    }
    DsHandle<DsSipFromHeader> getFromHeader() const { return getTyped<DsSipFromHeader>(); }
    DsHandle<DsSipToHeader> getToHeader() const { return getTyped<DsSipToHeader>(); }
    DsHandle<DsSipContactHeader> getContactHeader() const { return getTyped<DsSipContactHeader>(); }
    DsHandle<DsSipViaHeader> getViaHeader() const { return getTyped<DsSipViaHeader>(); }
    DsHandle<DsSipCSeqHeader> getCSeqHeader() const { return getTyped<DsSipCSeqHeader>(); }
    DsHandle<DsSipReferToHeader> getReferToHeader() const { return getTyped<DsSipReferToHeader>(); }
    DsHandle<DsSipReferredByHeader> getReferredByHeader() const { return getTyped<DsSipReferredByHeader>(); }
    DsHandle<DsSipContentTypeHeader> getContentTypeHeader() const
    {
        return getTyped<DsSipContentTypeHeader>();
    }
    DsHandle<DsSipReplacesHeader> getReplacesHeader() const { return getTyped<DsSipReplacesHeader>(); }
    /// Every readable header of a class, in message order.
    template <class H>
    std::vector<DsHandle<H>> getAllTyped() const
    {
        std::vector<DsHandle<H>> all;
        for (DsHandle<DsSipHeader> h = getHeaderByID(H::kID); !h.isNil(); h = h->getNext())
        {
            if (DsHandle<H> typed = h.dynamicCast<H>(); !typed.isNil())
            {
                all.push_back(std::move(typed));
            }
        }
        return all;
    }

    /// The text of Call-ID, empty when absent.
    DsString getCallID() const;
    /// Empty when absent or unreadable.
    DsString getFromTag() const;
    DsString getToTag() const;

    /// Copies the header into the message, behind the others of its name, else behind all.
    void addHeader(const DsHandle<DsSipHeader>& in_hHeader);
    void addHeader(const DsSipHeader& in_header);
    /// The same from texts. The value is taken as it stands, except that line ends in it become blanks.
    void addHeader(std::string_view in_name, std::string_view in_value);
    /// Removes every header of a name (any case, long or compact); true when there was one.
    bool removeHeader(std::string_view in_name);
    bool removeHeaderByID(int in_iID);
    /// Replaces the headers of its name.
    void updateHeader(const DsSipHeader& in_header);

    /// Whether the option tag stands in Supported (or, for isRequired, in Require). Any case.
    bool isSupported(std::string_view in_optionTag) const;
    bool isRequired(std::string_view in_optionTag) const;

    // --- body ---

    const std::string& getBody() const { return m_strBody; }
    std::size_t getBodyLength() const { return m_strBody.size(); }
    /// The media type of Content-Type as written, without parameters; empty when absent.
    DsString getBodyType() const;
    /// Sets the body and Content-Type; an empty body removes the Content-Type.
    void setBody(std::string_view in_body, std::string_view in_type);

    // --- the way it came or goes ---

    /// Where the message came in; invalid for messages of our own.
    const DsInetAddress& getLocalAddress() const { return m_localAddress; }
    const DsInetAddress& getSourceAddress() const { return m_sourceAddress; }
    void setAddresses(const DsInetAddress& in_local, const DsInetAddress& in_source);
    /// Where a request is to be sent, whatever its URI says; invalid: by the rules.
    const DsInetAddress& getConnectionAddress() const { return m_connectionAddress; }
    void setConnectionAddress(const DsInetAddress& in_address) { m_connectionAddress = in_address; }

    // --- as text ---

    /// The message as it stands on the wire, with a Content-Length that is right.
    std::string getText() const;
    std::ostream& display(std::ostream& out_stream) const override;
    DsSipMessage* clone() const override = 0;

protected:
    DsSipMessage() = default;
    DsSipMessage(const DsSipMessage& in_other);

    /// Appends every line of each identifier, one identifier after the other, as it stands in the other
    /// message.
    void copyHeaders(const DsSipMessage& in_other, std::initializer_list<int> in_ids);

private:
    friend class DsSipMessageBuilder;

    struct Line
    {
        std::uint32_t m_uiName = 0;  // where the name and the value stand in m_strHeaders
        std::uint32_t m_uiNameLength = 0;
        std::uint32_t m_uiValue = 0;
        std::uint32_t m_uiValueLength = 0;
        int m_iID = DsSipHeaderID::eUNKNOWN;
        std::vector<DsHandle<DsSipHeader>> m_vTyped;  // once made; guarded by m_mutex
    };

    std::string_view nameOf(const Line& in_line) const;
    std::string_view rawValueOf(const Line& in_line) const;
    static bool isModified(const Line& in_line);
    std::string valueOf(const Line& in_line) const;
    void appendValue(std::string& io_strText, const Line& in_line) const;
    bool hasName(const Line& in_line, int in_iID, std::string_view in_name) const;
    void store(Line& out_line, std::string_view in_name, std::string_view in_value);
    void insertLine(int in_iID, std::string_view in_name, std::string_view in_value);
    void forgetTyped(int in_iID);
    void makeTyped(int in_iID) const;
    void makeTypedLine(Line& io_line) const;
    DsHandle<DsSipHeader> getReadable(int in_iID) const;
    bool isListed(int in_iID, std::string_view in_token) const;
    void updateContentLength();

    std::string m_strHeaders;  // the lines' texts
    mutable std::vector<Line> m_vLines;
    mutable std::mutex m_mutex;
    std::string m_strBody;
    DsInetAddress m_localAddress;
    DsInetAddress m_sourceAddress;
    DsInetAddress m_connectionAddress;
};

/// Builds a message from the pieces of a parsed one. One build per builder.
class DsSipMessageBuilder
{
public:
    /// @param in_expectedBytes the length of all header lines together, when known
    DsSipMessageBuilder(std::string_view in_method,
                        std::string_view in_requestURI,
                        std::size_t in_expectedBytes = 512);
    DsSipMessageBuilder(unsigned int in_uiStatusCode,
                        std::string_view in_reason,
                        std::size_t in_expectedBytes = 512);

    /// One header line, with or without its line end, perhaps folded. False when it has no colon or no name.
    bool addLine(std::string_view in_line);
    /// As many headers are going to come.
    void expectHeaders(std::size_t in_count) { m_hMessage->m_vLines.reserve(in_count); }
    /// One header from its name and value.
    void addHeader(std::string_view in_name, std::string_view in_value);
    void setBody(std::string_view in_body);
    void setAddresses(const DsInetAddress& in_local, const DsInetAddress& in_source);

    DsHandle<DsSipMessage> build();
    /// Nil when the message is a response.
    DsHandle<DsSipRequest> buildRequest();
    /// Nil when the message is a request.
    DsHandle<DsSipResponse> buildResponse();

private:
    friend class DsSipMessage;
    DsHandle<DsSipMessage> m_hMessage;
};

}  // namespace Quorvex
