# SPDX-License-Identifier: MIT
# The program of the README is compiled and run for every target; the other examples in documents
# and in the headers, and the reference, which are the same everywhere, once.
set(examples_test "${CMAKE_CURRENT_SOURCE_DIR}/docs/examples_test.py" "${PROJECT_SOURCE_DIR}"
  "${PROJECT_BINARY_DIR}" "${CMAKE_C_COMPILER}" "${CMAKE_CXX_COMPILER}"
  "${CMAKE_C_FLAGS} ${CMAKE_C_FLAGS_RELWITHDEBINFO}" ${CMAKE_CROSSCOMPILING_EMULATOR} --)
if(GROUNDWORK_CONF)
  add_test(NAME docs/readme_test COMMAND ${examples_test} README.md -k readme)
  set_tests_properties(docs/readme_test PROPERTIES TIMEOUT 120)
endif()
if(PLAIN_I386)
  add_test(NAME docs/reference_test
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/docs/reference_test.py" "${PROJECT_SOURCE_DIR}"
      "${PROJECT_BINARY_DIR}" "${CMAKE_C_COMPILER}" "${CMAKE_C_FLAGS} ${CMAKE_C_FLAGS_RELWITHDEBINFO}")
  file(GLOB documents CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}"
    "${PROJECT_SOURCE_DIR}/docs/*.md")
  file(GLOB classes CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/cpp/include/groundwork/cpp/*.hpp")
  set(headers ${public_headers} ${classes})
  list(TRANSFORM headers REPLACE "^${PROJECT_SOURCE_DIR}/" "")
  add_test(NAME docs/links_test
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/docs/links_test.py" "${PROJECT_SOURCE_DIR}")
  add_test(NAME docs/dist_test
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/docs/dist_test.py" "${PROJECT_SOURCE_DIR}")
  add_test(NAME docs/examples_test COMMAND ${examples_test} README.md CONTRIBUTING.md ${documents} ${headers})
  set_tests_properties(docs/reference_test docs/links_test docs/dist_test docs/examples_test
    PROPERTIES TIMEOUT 900 COST 300 LABELS slow)
endif()
