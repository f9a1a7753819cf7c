# The project's build rules: one function for each kind of thing that is built.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
# Programs find their libraries beside them, wherever the tree is installed.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib")

option(QUORVEX_TESTS "Build the tests" ON)
option(QUORVEX_BENCH "Build the benchmarks" OFF)
option(QUORVEX_FUZZ "Build the fuzz targets (clang)" OFF)
set(QUORVEX_SANITIZE "" CACHE STRING "Sanitizers for the whole build: address,undefined or thread")

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Werror -fno-omit-frame-pointer
                    -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
# Line tables are all that a backtrace needs, and a third of the size of full debug information.
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1 -DNDEBUG")
set(CMAKE_CXX_FLAGS_DEBUG "-g1")
if(QUORVEX_SANITIZE)
    add_compile_options(-fsanitize=${QUORVEX_SANITIZE} -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${QUORVEX_SANITIZE})
    # gcc's instrumentation makes values look uninitialised that are not.
    add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    if(QUORVEX_SANITIZE MATCHES "thread")
        add_compile_definitions(QUORVEX_TSAN)
        # gcc cannot model stand-alone fences under this sanitizer; the library code that uses them is not ours.
        add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
    endif()
endif()

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_library(ACE_LIBRARY ACE REQUIRED)
find_library(LOG4CPLUS_LIBRARY log4cplus REQUIRED)

# add_subdirectory for each folder of the list that has something to build.
function(quorvex_add_subdirectories)
    foreach(dir IN LISTS ARGN)
        if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/CMakeLists.txt)
            add_subdirectory(${dir})
        endif()
    endforeach()
endfunction()

# Every folder below `root` that has a CMakeLists.txt.
function(quorvex_add_test_tree root)
    file(GLOB_RECURSE lists CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} ${root}/*/CMakeLists.txt)
    list(SORT lists)
    foreach(list IN LISTS lists)
        get_filename_component(dir ${list} DIRECTORY)
        add_subdirectory(${dir})
    endforeach()
endfunction()

function(quorvex_includes target)
    target_include_directories(${target} PUBLIC ${CMAKE_SOURCE_DIR}/include ${CMAKE_SOURCE_DIR}/platform)
endfunction()

# A platform library: shared, since plug-ins and host must see one set of singletons.
function(quorvex_library name)
    cmake_parse_arguments(arg "" "" "SOURCES;LINKS;PRIVATE_LINKS" ${ARGN})
    add_library(${name} SHARED ${arg_SOURCES})
    quorvex_includes(${name})
    target_link_libraries(${name} PUBLIC ${arg_LINKS} Threads::Threads PRIVATE ${arg_PRIVATE_LINKS})
    target_link_options(${name} PRIVATE LINKER:--no-undefined)
    if(QUORVEX_SANITIZE)
        target_link_options(${name} PRIVATE LINKER:--undefined-version LINKER:-z,undefs)
    endif()
endfunction()

# A plug-in: hidden visibility, only what the version script names is exported. Its objects are a library of their
# own, <name>-objects, which tests link, so that nothing has to be exported for them.
function(quorvex_plugin name)
    cmake_parse_arguments(arg "" "VERSION_SCRIPT" "SOURCES;LINKS;PRIVATE_LINKS" ${ARGN})
    add_library(${name}-objects OBJECT ${arg_SOURCES})
    quorvex_includes(${name}-objects)
    target_include_directories(${name}-objects PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${name}-objects PUBLIC ${arg_LINKS} ${arg_PRIVATE_LINKS} Threads::Threads)
    set_target_properties(${name}-objects PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)

    add_library(${name} MODULE $<TARGET_OBJECTS:${name}-objects>)
    target_link_libraries(${name} PRIVATE ${arg_LINKS} ${arg_PRIVATE_LINKS} Threads::Threads)
    set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
    if(arg_VERSION_SCRIPT)
        target_link_options(${name} PRIVATE
            LINKER:--version-script=${CMAKE_CURRENT_SOURCE_DIR}/${arg_VERSION_SCRIPT})
        set_target_properties(${name} PROPERTIES LINK_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${arg_VERSION_SCRIPT})
    endif()
endfunction()

# A GoogleTest program, one ctest entry. LABELS: unit, component or system. TIMEOUT in seconds.
function(quorvex_test name)
    cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LINKS;LABELS" ${ARGN})
    find_package(GTest REQUIRED)
    add_executable(${name} ${arg_SOURCES})
    quorvex_includes(${name})
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
    # gcc 12 sees faults in its own vector::insert where tests put bytes together.
    target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds;-Wno-stringop-overflow;-Wno-stringop-overread>)
    target_link_libraries(${name} PRIVATE ${arg_LINKS} GTest::gmock GTest::gtest_main Threads::Threads)
    add_test(NAME ${name} COMMAND ${name})
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    set_tests_properties(${name} PROPERTIES LABELS "${arg_LABELS}" TIMEOUT ${arg_TIMEOUT})
endfunction()

# A test that is a script: run with the build folder as its first argument.
function(quorvex_script_test name)
    cmake_parse_arguments(arg "SERIAL" "SCRIPT;TIMEOUT" "LABELS;ARGS" ${ARGN})
    find_package(Python3 REQUIRED COMPONENTS Interpreter)
    add_test(NAME ${name}
             COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/${arg_SCRIPT} ${CMAKE_BINARY_DIR} ${arg_ARGS})
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    set_tests_properties(${name} PROPERTIES LABELS "${arg_LABELS}" TIMEOUT ${arg_TIMEOUT})
    if(arg_SERIAL)
        set_tests_properties(${name} PROPERTIES RUN_SERIAL ON)
    endif()
endfunction()

# A Google Benchmark program; `make bench` runs them all.
function(quorvex_bench name)
    if(NOT QUORVEX_BENCH)
        return()
    endif()
    cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
    find_package(benchmark REQUIRED)
    add_executable(${name} ${arg_SOURCES})
    quorvex_includes(${name})
    target_link_libraries(${name} PRIVATE ${arg_LINKS} benchmark::benchmark benchmark::benchmark_main)
    set_property(GLOBAL APPEND PROPERTY QUORVEX_BENCHES ${name})
endfunction()

# A libFuzzer target (the fuzz preset). Elsewhere its seeds are a test: what a run once found stays found, and the target
# goes on building.
function(quorvex_fuzz name)
    cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
    if(NOT QUORVEX_FUZZ AND NOT QUORVEX_TESTS)
        return()
    endif()
    add_executable(${name} ${arg_SOURCES})
    quorvex_includes(${name})
    target_link_libraries(${name} PRIVATE ${arg_LINKS})
    if(QUORVEX_FUZZ)
        target_compile_options(${name} PRIVATE -fsanitize=fuzzer)
        target_link_options(${name} PRIVATE -fsanitize=fuzzer)
        return()
    endif()
    target_sources(${name} PRIVATE run_seeds.cpp)
    add_test(NAME ${name} COMMAND ${name} ${CMAKE_CURRENT_SOURCE_DIR}/seeds/${name})
    set_tests_properties(${name} PROPERTIES LABELS component TIMEOUT 120)
endfunction()
