# The session description's sources, built into the library of this folder.
set(QUORVEX_SDP_SOURCES DsSdpFields.cpp DsSdpMsg.cpp)
