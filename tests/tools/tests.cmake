# SPDX-License-Identifier: MIT
# The tests of a tool that was left out are left out.
foreach(tool IN ITEMS cat conf log)
  if(TARGET gw-${tool})
    add_test(NAME tools/gw_${tool}_test
      COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/tools/gw_${tool}_test.py"
        ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:gw-${tool}>)
    set_tests_properties(tools/gw_${tool}_test PROPERTIES TIMEOUT 300 COST 15)
  endif()
endforeach()

# The program once more, inside a test that makes its allocations fail.
if(TARGET gw-conf)
  groundwork_test(tools/gw_conf_faults_test NOT_ON_THE_DEVICE)
  set(gw_conf_source "${PROJECT_SOURCE_DIR}/tools/gw-conf.c")
  target_sources(tools_gw_conf_faults_test PRIVATE "${gw_conf_source}")
  get_target_property(definitions gw-conf COMPILE_DEFINITIONS)
  set_source_files_properties("${gw_conf_source}" PROPERTIES
    SKIP_PRECOMPILE_HEADERS ON
    COMPILE_DEFINITIONS "${definitions};main=gw_conf;g_conf_open=open_meanwhile")
endif()

find_program(BASH_PROGRAM bash)
if(BASH_PROGRAM)
  set(gw_conf "")
  if(TARGET gw-conf)
    set(gw_conf ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:gw-conf>)
  endif()
  add_test(NAME tools/completion_test
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/tools/completion_test.py"
      "${PROJECT_SOURCE_DIR}/tools/completion" ${gw_conf})
  set_tests_properties(tools/completion_test PROPERTIES TIMEOUT 300)
endif()
