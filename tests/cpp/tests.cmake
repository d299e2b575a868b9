# SPDX-License-Identifier: MIT
# The C++ wrapper, as programs in C++17 use it; so without the other tests' compiled header.
if(GROUNDWORK_COMPLETE)
  add_executable(cpp_wrapper_test cpp/wrapper_test.cc)
  target_link_libraries(cpp_wrapper_test PRIVATE test_support)
  target_compile_options(cpp_wrapper_test PRIVATE -O0)
  set_target_properties(cpp_wrapper_test PROPERTIES CXX_STANDARD 17)
  groundwork_warnings(cpp_wrapper_test)
  add_test(NAME cpp/wrapper_test COMMAND cpp_wrapper_test)
  set_tests_properties(cpp/wrapper_test PROPERTIES TIMEOUT 300 LABELS threads)

  if(PLAIN_I386)
    add_test(NAME cpp/compilers_test
      COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/cpp/compilers_test.py" "${PROJECT_SOURCE_DIR}"
        "${PROJECT_BINARY_DIR}")
    set_tests_properties(cpp/compilers_test PROPERTIES TIMEOUT 300 COST 30)
  endif()
endif()
