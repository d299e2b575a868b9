# SPDX-License-Identifier: MIT
# What does not depend on the target is tested once, by the plain 32-bit build.
if(CMAKE_CXX_FLAGS MATCHES "-m32" AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  add_test(NAME build/build_test
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/build/build_test.py" "${PROJECT_SOURCE_DIR}")
  add_test(NAME build/lint COMMAND "${PROJECT_SOURCE_DIR}/scripts/lint")
  set_tests_properties(build/build_test build/lint PROPERTIES TIMEOUT 900)
endif()
