#pragma once

#include <string>
#include <string_view>

#include "sipstack/DsHandle.h"
#include "sipstack/DsObject.h"
#include "sipstack/DsString.h"

namespace Quorvex
{

/// The identifiers of header names. A header whose name the layer has no class for is unknown.
namespace DsSipHeaderID
{
enum ID : int
{
    eACCEPT_ENCODING = 0,
    eCALL_ID = 1,
    eACCEPT_LANGUAGE = 2,
    eALLOW = 3,
    eCONTACT = 4,
    eFROM = 5,
    eTO = 6,
    eVIA = 7,
    eCSEQ = 8,
    eROUTE = 9,
    eRECORD_ROUTE = 10,
    eMAX_FORWARDS = 11,
    eCONTENT_LENGTH = 12,
    eCONTENT_TYPE = 13,
    eSUPPORTED = 14,
    eREQUIRE = 15,
    ePROXY_REQUIRE = 16,
    eUNSUPPORTED = 17,
    eUSER_AGENT = 18,
    eSERVER = 19,
    eDATE = 20,
    eEXPIRES = 21,
    eMIN_EXPIRES = 22,
    eEVENT = 23,
    eALLOW_EVENTS = 24,
    eSUBSCRIPTION_STATE = 25,
    eREFER_TO = 26,
    eREFERRED_BY = 27,
    eREPLACES = 28,
    eRACK = 29,
    eRSEQ = 30,
    eSESSION_EXPIRES = 31,
    eMIN_SE = 32,
    eRETRY_AFTER = 33,
    eAUTHORIZATION = 34,
    ePROXY_AUTHORIZATION = 35,
    eWWW_AUTHENTICATE = 36,
    ePROXY_AUTHENTICATE = 37,
    eCONTENT_DISPOSITION = 38,
    eCONTENT_ENCODING = 39,
    eMIME_VERSION = 40,
    eTIMESTAMP = 41,
    eUNKNOWN = 55,
    eNUM_IDS = 56
};
}  // namespace DsSipHeaderID

/// One header value of a message, or one made for a message. A header that a message gives out belongs to the
/// message (changes show in it) until headers of that name are added to or removed from the message.
class DsSipHeader : public DsObject
{
public:
    DsSipHeader& operator=(const DsSipHeader&) = delete;
    ~DsSipHeader() override;

    QUORVEX_MEM_ACCOUNT("DsSipHeader");

    /// The identifier of a name, in any case, in its long or compact form.
    static int getIDFromName(std::string_view in_name);
    /// The long name of an identifier ("Call-ID"); empty for eUNKNOWN.
    static std::string_view getNameFromID(int in_iID);
    /// A header made from a name and a value. Throws a DsException when a known header's value cannot be
    /// read.
    static DsHandle<DsSipHeader> create(std::string_view in_name, std::string_view in_value);

    int getHeaderID() const { return m_iID; }
    /// The header's name: as received, or the long form.
    virtual DsString getToken() const;
    /// The value as text, without line folds; as received when nothing was changed.
    DsString getValueText() const { return m_strReceived.empty() ? formatValue() : DsString(m_strReceived); }
    /// "Name: value", without a line end.
    DsString getText() const;

    /// The next header of the same identifier in the message; nil at the end and for a header of no message.
    const DsHandle<DsSipHeader>& getNext() const { return m_hNext; }

    DsSipHeader* clone() const override = 0;
    /// Orders by name, then by value text.
    int compareWith(const DsObject& in_other) const override;
    std::size_t hashCode() const override;
    std::ostream& display(std::ostream& out_stream) const override;

protected:
    explicit DsSipHeader(int in_iID, std::string_view in_received = {})
        : m_iID(in_iID), m_strReceived(in_received)
    {
    }
    DsSipHeader(const DsSipHeader& in_other)
        : DsObject(in_other),
          m_iID(in_other.m_iID),
          m_strToken(in_other.m_strToken),
          m_strReceived(in_other.m_strReceived)
    {
    }

    /// The value as text, from its parts.
    virtual DsString formatValue() const = 0;
    /// To be called by whatever changes the value.
    void touch()
    {
        m_bModified = true;
        m_strReceived.clear();
    }

private:
    friend class DsSipMessage;
    const int m_iID;
    bool m_bModified = false;       // since the message gave it out
    std::string m_strToken;         // empty: the long form
    std::string m_strReceived;      // empty: by formatValue()
    DsHandle<DsSipHeader> m_hNext;  // set by the message
};

/// A header that the layer has no class for, or a known one whose value cannot be read.
class DsSipUnknownHeader final : public DsSipHeader
{
public:
    DsSipUnknownHeader(std::string_view in_name, std::string_view in_value);
    /// For a known name with an unreadable value.
    DsSipUnknownHeader(int in_iID,
                       std::string_view in_name,
                       std::string_view in_value,
                       std::string_view in_error);

    DsString getToken() const override { return m_strName; }
    const DsString& getValue() const { return m_strValue; }
    /// Why a known header could not be read; empty otherwise.
    const std::string& getError() const { return m_strError; }

    DsSipUnknownHeader* clone() const override;

protected:
    DsString formatValue() const override { return m_strValue; }

private:
    DsString m_strName;
    DsString m_strValue;
    std::string m_strError;
};

}  // namespace Quorvex
