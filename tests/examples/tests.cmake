# SPDX-License-Identifier: MIT
# An example that was left out with its subsystem has no test.
foreach(example IN ITEMS callbacks chart ciphers configuration containers files logging threads urls)
  if(TARGET example_${example})
    add_test(NAME examples/${example}_test
      COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/examples/examples_test.py" ${example}
        ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:example_${example}>)
    set_tests_properties(examples/${example}_test PROPERTIES TIMEOUT 300)
  endif()
  if(TARGET example_cpp_${example})
    add_test(NAME examples/cpp_${example}_test
      COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/examples/cpp_examples_test.py"
        "${PROJECT_SOURCE_DIR}/examples/cpp/${example}.cc"
        ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:example_cpp_${example}>)
    set_tests_properties(examples/cpp_${example}_test PROPERTIES TIMEOUT 300)
  endif()
endforeach()

if(TARGET monitor)
  add_test(NAME examples/monitor_test
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/examples/monitor_test.py"
      "${PROJECT_SOURCE_DIR}/examples/monitor/monitor.conf"
      ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:monitor>)
  set_tests_properties(examples/monitor_test PROPERTIES TIMEOUT 300 COST 15)
endif()
