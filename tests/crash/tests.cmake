# SPDX-License-Identifier: MIT
# Power cuts by simulation, and processes that are killed. The programs define the system's
# functions themselves.
if(NOT GROUNDWORK_SAFE)
  return()
endif()

function(groundwork_crash_test name)
  set(target crash_${name})
  add_executable(${target} crash/${name}.cc crash/recorder.cc ${ARGN}
    "$<FILTER:$<TARGET_OBJECTS:test_support>,EXCLUDE,/(fake_clock|allocation_faults)[.]>")
  target_include_directories(${target}
    SYSTEM PRIVATE "${GROUNDWORK_GOOGLETEST_DIR}/googletest/include")
  target_include_directories(${target} PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
  target_link_libraries(${target} PRIVATE groundwork ${CMAKE_DL_LIBS})
  target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-psabi>)
  groundwork_warnings(${target})
  add_test(NAME crash/${name} COMMAND ${target})
  set_tests_properties(crash/${name} PROPERTIES TIMEOUT 900 COST 50)
endfunction()

if(GROUNDWORK_CONF)
  set(conf_savers crash/conf_power_cut_test.cc)
  set(killed_conf_savers crash/conf_kill_test.cc)
endif()
groundwork_crash_test(kill_test ${killed_conf_savers})
groundwork_crash_test(power_cut_test crash/crash_states.cc ${conf_savers})
# The sanitizers call some of these before they are ready for instrumented code.
set_source_files_properties(crash/recorder.cc PROPERTIES COMPILE_OPTIONS -fno-sanitize=all)
set_source_files_properties(crash/crash_states.cc PROPERTIES COMPILE_OPTIONS -O2)
