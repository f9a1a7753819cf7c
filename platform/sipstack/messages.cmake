# The messages, headers and addresses, built into the library of this folder.
set(QUORVEX_MESSAGE_SOURCES
    DsException.cpp
    DsInetAddress.cpp
    DsObject.cpp
    DsSipAddressHeaders.cpp
    DsSipDigest.cpp
    DsSipHeader.cpp
    DsSipMessage.cpp
    DsSipMessageBuilder.cpp
    DsSipParameters.cpp
    DsSipRequest.cpp
    DsSipResponse.cpp
    DsSipText.cpp
    DsSipURL.cpp
    DsSipValueHeaders.cpp)
