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
