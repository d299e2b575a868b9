# SPDX-License-Identifier: MIT
# The reference is the same for every target, so it is looked at once.
if(CMAKE_CXX_FLAGS MATCHES "-m32" AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  add_test(NAME docs/reference_test
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/docs/reference_test.py" "${PROJECT_SOURCE_DIR}"
      "${PROJECT_BINARY_DIR}/exports.txt")
  set_tests_properties(docs/reference_test PROPERTIES TIMEOUT 300)
endif()
