# SPDX-License-Identifier: MIT
groundwork_test(endurance/side_by_side_test LABELS threads)
if(GROUNDWORK_CRYPT)
  target_compile_definitions(endurance_side_by_side_test PRIVATE GROUNDWORK_TESTS_CRYPT)
endif()

# Runs all services side by side for a while: nothing may grow. tests/soak SECONDS runs longer.
if(GROUNDWORK_CONF AND GROUNDWORK_CRYPT AND GROUNDWORK_URL)
  add_executable(endurance_soak
    endurance/soak.cc endurance/soak_server.cc endurance/soak_workers.cc)
  target_link_libraries(endurance_soak PRIVATE groundwork)
  target_include_directories(endurance_soak PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
  target_compile_definitions(endurance_soak PRIVATE
    _GNU_SOURCE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
  groundwork_warnings(endurance_soak)
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    set(soak_arguments 5 emulated)
  else()
    set(soak_arguments 20)
  endif()
  add_test(NAME endurance/soak COMMAND endurance_soak ${soak_arguments})
  set_tests_properties(endurance/soak PROPERTIES TIMEOUT 300 COST 25 LABELS threads)
endif()
