# SPDX-License-Identifier: MIT

if(GROUNDWORK_SANITIZE MATCHES "thread")
  return()  # it has one thread
endif()

# One program: the engine, and the scenarios of each module that is built. It defines the
# system's functions itself, the clock too, and has its own main().
set(fault_sources
  faults/fault_plan.cc
  faults/interposed_calls.cc
  faults/library_symbols.cc
  faults/sweep.cc)
foreach(subsystem IN LISTS GROUNDWORK_SUBSYSTEMS)
  if(EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/faults/${subsystem}_faults_test.cc")
    list(APPEND fault_sources faults/${subsystem}_faults_test.cc)
  endif()
endforeach()
if(GROUNDWORK_URL)
  list(APPEND fault_sources url/scripted_server.cc)
endif()
add_executable(faults_sweep_test ${fault_sources}
  "$<FILTER:$<TARGET_OBJECTS:test_support>,EXCLUDE,/(fake_clock|gtest_main)[.]>")
target_include_directories(faults_sweep_test
  SYSTEM PRIVATE "${GROUNDWORK_GOOGLETEST_DIR}/googletest/include")
target_include_directories(faults_sweep_test PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
target_link_libraries(faults_sweep_test PRIVATE groundwork ${CMAKE_DL_LIBS})
target_compile_definitions(faults_sweep_test PRIVATE
  "GROUNDWORK_EXPORTS=\"${PROJECT_BINARY_DIR}/exports.txt\"")
target_compile_options(faults_sweep_test PRIVATE -O0 -g1
  $<$<CXX_COMPILER_ID:GNU>:-Wno-psabi>)
target_precompile_headers(faults_sweep_test REUSE_FROM test_headers)
groundwork_warnings(faults_sweep_test)
set_source_files_properties(faults/interposed_calls.cc PROPERTIES
  SKIP_PRECOMPILE_HEADERS ON
  COMPILE_DEFINITIONS "_FILE_OFFSET_BITS=64;_TIME_BITS=64"
  # The sanitizers call some of these before they are ready for instrumented code.
  COMPILE_OPTIONS -fno-sanitize=all)

# The same engine with another program at work between two calls instead of a fault.
if(GROUNDWORK_SAFE)
  add_executable(faults_meddler_test
    faults/fault_plan.cc faults/interposed_calls.cc faults/meddler_test.cc
    "$<FILTER:$<TARGET_OBJECTS:test_support>,EXCLUDE,/fake_clock[.]>")
  target_include_directories(faults_meddler_test
    SYSTEM PRIVATE "${GROUNDWORK_GOOGLETEST_DIR}/googletest/include")
  target_include_directories(faults_meddler_test PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
  target_link_libraries(faults_meddler_test PRIVATE groundwork ${CMAKE_DL_LIBS})
  target_compile_options(faults_meddler_test PRIVATE -O0 -g1
    $<$<CXX_COMPILER_ID:GNU>:-Wno-psabi>)
  target_precompile_headers(faults_meddler_test REUSE_FROM test_headers)
  groundwork_warnings(faults_meddler_test)
  add_test(NAME faults/meddler_test COMMAND faults_meddler_test)
  set_tests_properties(faults/meddler_test PROPERTIES TIMEOUT 900)
endif()

# Emulated, each call fails once only, in one way: what a fault does to the library does not
# depend on the target, but the names and layouts of the functions do.
if(CMAKE_CROSSCOMPILING_EMULATOR)
  set(fault_form --short)
endif()
add_test(NAME faults/sweep_test COMMAND faults_sweep_test ${fault_form})
set_tests_properties(faults/sweep_test PROPERTIES TIMEOUT 900 COST 150)
