#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Quorvex
{

// The fields of a session description (RFC 4566): plain values, without the "x=" and the line end. Each is
// made from its parts or by parse() from a received line's value. parse() throws a DsException that names the
// fault and what was expected; what it does not need it does not judge.

/// The origin, "o=": kept as text, since nobody acts on that of the far end.
class DsSdpOriginField
{
public:
    DsSdpOriginField(std::string_view in_user,
                     std::uint64_t in_uiSessionId,
                     std::uint64_t in_uiVersion,
                     std::string_view in_address);
    static DsSdpOriginField parse(std::string_view in_value);

    const std::string& getText() const { return m_strText; }

private:
    explicit DsSdpOriginField(std::string in_strText) : m_strText(std::move(in_strText)) {}
    std::string m_strText;
};

/// The session name, "s=".
class DsSdpSessionNameField
{
public:
    explicit DsSdpSessionNameField(std::string_view in_name) : m_strName(in_name) {}
    const std::string& getName() const { return m_strName; }

private:
    std::string m_strName;
};

/// The time the session is active, "t=": NTP seconds as text; "0" "0" is a session without bounds.
class DsSdpTimeDescription
{
public:
    explicit DsSdpTimeDescription(std::string_view in_start = "0", std::string_view in_stop = "0")
        : m_strStart(in_start), m_strStop(in_stop)
    {
    }
    static DsSdpTimeDescription parse(std::string_view in_value);

    const std::string& getStart() const { return m_strStart; }
    const std::string& getStop() const { return m_strStop; }

private:
    std::string m_strStart;
    std::string m_strStop;
};

/// A connection, "c=". The address is as it was received, blanks around it included.
class DsSdpConnectionField
{
public:
    DsSdpConnectionField(std::string_view in_netType,
                         std::string_view in_addrType,
                         std::string_view in_address)
        : m_strNetType(in_netType), m_strAddrType(in_addrType), m_strAddress(in_address)
    {
    }
    static DsSdpConnectionField parse(std::string_view in_value);

    const std::string& getNetType() const { return m_strNetType; }
    const std::string& getAddrType() const { return m_strAddrType; }
    const std::string& getAddress() const { return m_strAddress; }

    friend bool operator==(const DsSdpConnectionField&, const DsSdpConnectionField&) = default;

private:
    std::string m_strNetType;
    std::string m_strAddrType;
    std::string m_strAddress;
};

/// An attribute, "a=": a name, with or without a value.
class DsSdpAttributeField
{
public:
    explicit DsSdpAttributeField(std::string_view in_name) : m_strName(in_name) {}
    DsSdpAttributeField(std::string_view in_name, std::string_view in_value)
        : m_strName(in_name), m_strValue(in_value), m_bHasValue(true)
    {
    }
    static DsSdpAttributeField parse(std::string_view in_value);

    const std::string& getName() const { return m_strName; }
    bool hasValue() const { return m_bHasValue; }
    /// Empty when there is none.
    const std::string& getValue() const { return m_strValue; }

private:
    std::string m_strName;
    std::string m_strValue;
    bool m_bHasValue = false;
};

/// A media line, "m=": media type, port, transport and formats.
class DsSdpMediaField
{
public:
    DsSdpMediaField(std::string_view in_mediaType,
                    std::uint16_t in_uiPort,
                    std::string_view in_transport,
                    std::string_view in_formats)
        : m_strMediaType(in_mediaType),
          m_strTransport(in_transport),
          m_strFormats(in_formats),
          m_uiPort(in_uiPort)
    {
    }
    static DsSdpMediaField parse(std::string_view in_value);

    const std::string& getMediaType() const { return m_strMediaType; }
    std::uint16_t getPort() const { return m_uiPort; }
    const std::string& getTransport() const { return m_strTransport; }
    /// The formats, separated by blanks; may be empty.
    const std::string& getFormats() const { return m_strFormats; }

private:
    std::string m_strMediaType;
    std::string m_strTransport;
    std::string m_strFormats;
    std::uint16_t m_uiPort;
};

/// The value of an "rtpmap" attribute: "101 telephone-event/8000".
class DsSdpRtpAttribute
{
public:
    static DsSdpRtpAttribute parse(std::string_view in_value);

    /// 0 to 127.
    unsigned getPayloadType() const { return m_uiPayloadType; }
    const std::string& getEncodingName() const { return m_strEncodingName; }
    /// In Hz; 0 when it was not given.
    unsigned getClockRate() const { return m_uiClockRate; }

private:
    DsSdpRtpAttribute(unsigned in_uiPayloadType, std::string_view in_encodingName, unsigned in_uiClockRate)
        : m_strEncodingName(in_encodingName), m_uiPayloadType(in_uiPayloadType), m_uiClockRate(in_uiClockRate)
    {
    }
    std::string m_strEncodingName;
    unsigned m_uiPayloadType;
    unsigned m_uiClockRate;
};

using DsSdpAttributeVector = std::vector<DsSdpAttributeField>;

}  // namespace Quorvex
