# SPDX-License-Identifier: MIT
# What bench/run makes of figures, tested once, by the plain 32-bit build. The benchmarks
# themselves need their peers and are not built here.
if(PLAIN_I386)
  add_test(NAME bench/report_test
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/bench/report_test.py" "${PROJECT_SOURCE_DIR}/bench")
  set_tests_properties(bench/report_test PROPERTIES TIMEOUT 120)
endif()
