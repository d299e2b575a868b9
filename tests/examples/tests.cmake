# SPDX-License-Identifier: MIT
# An example that was left out with its subsystem has no test.
foreach(example IN ITEMS ciphers configuration containers files logging threads urls)
  if(TARGET example_${example})
    add_test(NAME examples/${example}_test
      COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/examples/examples_test.py" ${example}
        ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:example_${example}>)
    set_tests_properties(examples/${example}_test PROPERTIES TIMEOUT 300)
  endif()
endforeach()

if(TARGET monitor)
  add_test(NAME examples/monitor_test
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/examples/monitor_test.py"
      "${PROJECT_SOURCE_DIR}/examples/monitor/monitor.conf"
      ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:monitor>)
  set_tests_properties(examples/monitor_test PROPERTIES TIMEOUT 300)
endif()

# The program in the README is compiled from the README.
if(GROUNDWORK_CONF)
  file(READ "${PROJECT_SOURCE_DIR}/README.md" readme)
  set_property(DIRECTORY APPEND PROPERTY
    CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/README.md")
  string(REGEX MATCH "```c\n(.*return g_conf_close[^`]*)```" matched "${readme}")
  file(CONFIGURE OUTPUT "${CMAKE_CURRENT_BINARY_DIR}/readme_example.c" @ONLY
    CONTENT "${CMAKE_MATCH_1}")
  add_executable(readme_example "${CMAKE_CURRENT_BINARY_DIR}/readme_example.c")
  target_link_libraries(readme_example PRIVATE groundwork)
  groundwork_warnings(readme_example)
  add_test(NAME examples/readme_test
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/examples/readme_test.py"
      ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:readme_example>)
  set_tests_properties(examples/readme_test PROPERTIES TIMEOUT 120)
endif()
