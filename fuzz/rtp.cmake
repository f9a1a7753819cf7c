# RTP, RTCP, telephone events and sound files. The engine's sources are built in, so that they are instrumented.
set(MEDIA_ENGINE_DIR ${CMAKE_SOURCE_DIR}/media-engine)
find_library(SPANDSP_LIBRARY spandsp REQUIRED)
quorvex_fuzz(rtp_fuzz
    SOURCES
        rtp_fuzz.cpp
        ${MEDIA_ENGINE_DIR}/CpaDetector.cpp
        ${MEDIA_ENGINE_DIR}/G711.cpp
        ${MEDIA_ENGINE_DIR}/JitterBuffer.cpp
        ${MEDIA_ENGINE_DIR}/Latch.cpp
        ${MEDIA_ENGINE_DIR}/Rtcp.cpp
        ${MEDIA_ENGINE_DIR}/RtcpSession.cpp
        ${MEDIA_ENGINE_DIR}/RxAnalysis.cpp
        ${MEDIA_ENGINE_DIR}/RxStatistics.cpp
        ${MEDIA_ENGINE_DIR}/TelephoneEvent.cpp
        ${MEDIA_ENGINE_DIR}/TxStream.cpp
        ${MEDIA_ENGINE_DIR}/WavFile.cpp
    LINKS quorvex-infra ${SPANDSP_LIBRARY})
if(TARGET rtp_fuzz)
    target_include_directories(rtp_fuzz PRIVATE ${MEDIA_ENGINE_DIR})
endif()
