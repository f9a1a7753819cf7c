# The media engine, with generated sound of its tests for the analysis.
quorvex_bench(media_bench
    SOURCES media_bench.cpp RelayLoad.cpp RtpengineProcess.cpp SpandspProgressTones.cpp
        ${CMAKE_SOURCE_DIR}/tests/unit/media/CpaScenarios.cpp
    LINKS quorvex-rtp-media-objects)
if(TARGET media_bench)
    target_include_directories(media_bench PRIVATE ${CMAKE_SOURCE_DIR}/tests/unit/media)
endif()
