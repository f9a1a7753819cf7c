# Session descriptions and their negotiation. The plug-in's sources are built in, so that they are instrumented.
set(SDP_PLUGIN_DIR ${CMAKE_SOURCE_DIR}/gateway-interfaces/voip/sip/src)
quorvex_fuzz(sdp_fuzz
    SOURCES
        sdp_fuzz.cpp
        ${SDP_PLUGIN_DIR}/LocalSdpInfo.cpp
        ${SDP_PLUGIN_DIR}/Sdp.cpp
        ${SDP_PLUGIN_DIR}/SdpInfo.cpp
        ${SDP_PLUGIN_DIR}/SdpInfoVector.cpp
    LINKS quorvex-media quorvex-rtp quorvex-sip quorvex-sipstack quorvex-infra)
if(TARGET sdp_fuzz)
    target_include_directories(sdp_fuzz PRIVATE ${SDP_PLUGIN_DIR})
endif()
