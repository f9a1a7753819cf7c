# The plug-in between scripted engines, with the fixture of its component tests.
if(QUORVEX_BENCH)
    find_package(GTest REQUIRED)
endif()
set(NETIF_FIXTURE ${CMAKE_SOURCE_DIR}/tests/component/netif)
quorvex_bench(netif_bench
    SOURCES netif_bench.cpp ${NETIF_FIXTURE}/NetIfFixture.cpp
    LINKS quorvex-test-support quorvex-sip-netif-objects GTest::gtest)
if(TARGET netif_bench)
    target_include_directories(netif_bench PRIVATE ${NETIF_FIXTURE} ${CMAKE_SOURCE_DIR}/gateway-interfaces/voip/sip/src)
    target_compile_definitions(netif_bench PRIVATE TEST_LIB_DIR="${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
    add_dependencies(netif_bench test_media_plain)
endif()
