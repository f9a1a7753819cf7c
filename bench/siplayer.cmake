# CPU per call of the SIP object layer beside the base library alone and sipp (siplayer_bench.py runs them).
if(QUORVEX_BENCH)
    pkg_check_modules(SOFIA REQUIRED IMPORTED_TARGET sofia-sip-ua)
    add_executable(siplayer-nta-uas siplayer_nta_uas.cpp)
    target_include_directories(siplayer-nta-uas SYSTEM PRIVATE ${SOFIA_INCLUDE_DIRS})
    target_link_libraries(siplayer-nta-uas PRIVATE PkgConfig::SOFIA)
endif()
