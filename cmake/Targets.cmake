# One helper per kind of target, so that a library, a test or a fuzz target is
# a few lines.
include(GoogleTest)

# halvoria_platform_library(NAME SOURCES files... LINKS targets... [PRIVATE targets...])
#   A library of the installation in platform/NAME, included as <NAME/Header.h>.
#   LINKS is what its headers need; it may include only what it links.
function(halvoria_platform_library name)
  cmake_parse_arguments(A "" "" "SOURCES;LINKS;PRIVATE" ${ARGN})
  add_library(platform_${name} STATIC ${A_SOURCES})
  add_library(platform::${name} ALIAS platform_${name})
  target_include_directories(platform_${name} PUBLIC ${PROJECT_SOURCE_DIR}/platform)
  target_link_libraries(platform_${name} PUBLIC ${A_LINKS} PRIVATE ${A_PRIVATE})
  set_property(GLOBAL APPEND PROPERTY HALVORIA_PLATFORM platform_${name})
  if(HALVORIA_TESTS AND EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/tests/CMakeLists.txt)
    add_subdirectory(tests)
  endif()
endfunction()

# halvoria_test(NAME SOURCES files... LINKS targets... [COST seconds])
#   Of two tests the one with the higher cost begins first, so that none is waited for at the end.
#   Every case runs in a process of its own, since some state is process-wide. All tests share
#   one precompiled header, which the first of them makes: hence the definition that some bring. With
#   it g++ 12 no longer sees that what it wrongly suspects stands in the standard library.
function(halvoria_test name)
  if(HALVORIA_FUZZ)
    return()
  endif()
  cmake_parse_arguments(A "" "COST" "SOURCES;LINKS" COST 0 ${ARGN})
  add_executable(${name} ${A_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${A_LINKS} GTest::gmock GTest::gtest_main)
  target_compile_definitions(${name} PRIVATE _FILE_OFFSET_BITS=64)
  target_compile_options(${name} PRIVATE
    -Wno-array-bounds -Wno-restrict -Wno-stringop-overflow -Wno-stringop-overread)
  get_property(first GLOBAL PROPERTY HALVORIA_FIRST_TEST)
  if(first)
    target_precompile_headers(${name} REUSE_FROM ${first})
  else()
    target_precompile_headers(${name} PRIVATE <gmock/gmock.h> <gtest/gtest.h> <algorithm> <atomic>
      <chrono> <filesystem> <fstream> <functional> <map> <memory> <mutex> <string> <thread> <vector>)
    set_property(GLOBAL PROPERTY HALVORIA_FIRST_TEST ${name})
  endif()
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 300 COST ${A_COST})
endfunction()

# halvoria_fuzz_target(NAME SOURCES files... LINKS targets... CORPUS folder)
#   With HALVORIA_FUZZ a libFuzzer program in bin/; otherwise a program that
#   replays the stored corpus once, run as a test.
function(halvoria_fuzz_target name)
  cmake_parse_arguments(A "" "CORPUS" "SOURCES;LINKS" ${ARGN})
  if(HALVORIA_FUZZ)
    add_executable(${name} ${A_SOURCES} ${PROJECT_SOURCE_DIR}/tests/fuzz/reach.cpp)
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON)  # what counts coverage, to modules
  else()
    add_executable(${name} ${A_SOURCES} ${PROJECT_SOURCE_DIR}/tests/fuzz/reach.cpp
                   ${PROJECT_SOURCE_DIR}/tests/fuzz/replay_corpus.cpp)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)
    add_test(NAME ${name} COMMAND ${name} ${A_CORPUS})
  endif()
  target_link_libraries(${name} PRIVATE ${A_LINKS})
endfunction()
