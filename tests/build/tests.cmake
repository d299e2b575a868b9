# SPDX-License-Identifier: MIT
# An installed copy serves every kind of program, on every target. A sanitizer's library does
# not serve programs that were built without it.
if(NOT GROUNDWORK_SANITIZE)
  add_test(NAME build/install_test
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/build/install_test.py" "${PROJECT_BINARY_DIR}"
      "${CMAKE_INSTALL_LIBDIR}" "${CMAKE_INSTALL_DOCDIR}"
      "${CMAKE_C_COMPILER}" "${CMAKE_CXX_COMPILER}" "${CMAKE_C_FLAGS}"
      "${CMAKE_TOOLCHAIN_FILE}" ${CMAKE_CROSSCOMPILING_EMULATOR})
  add_test(NAME build/private_copy_test
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/build/private_copy_test.py" "${PROJECT_SOURCE_DIR}"
      "${PROJECT_BINARY_DIR}" "${CMAKE_C_COMPILER}" "${CMAKE_C_FLAGS}" "${CMAKE_NM}"
      "${CMAKE_OBJCOPY}" ${CMAKE_CROSSCOMPILING_EMULATOR})
  set_tests_properties(build/install_test build/private_copy_test PROPERTIES
    TIMEOUT 300 COST 60)
  set_tests_properties(build/install_test PROPERTIES RESOURCE_LOCK build_folder)
endif()

add_executable(build_late_load build/late_load.c)
target_link_libraries(build_late_load PRIVATE Threads::Threads ${CMAKE_DL_LIBS})
groundwork_warnings(build_late_load)
add_test(NAME build/late_load COMMAND build_late_load $<TARGET_FILE:groundwork>)
set_tests_properties(build/late_load PROPERTIES TIMEOUT 60)

# What does not depend on the target is tested once, by the plain 32-bit build.
if(PLAIN_I386)
  # Each function of build_test.py is a test of its own, so that the builds run side by side.
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS build/build_test.py)
  file(STRINGS build/build_test.py builds REGEX "^  +def test_")
  foreach(build IN LISTS builds)
    string(REGEX REPLACE ".*def test_([a-z0-9_]+).*" "\\1" build "${build}")
    add_test(NAME build/${build}
      COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/build/build_test.py"
        "${PROJECT_SOURCE_DIR}" "${PROJECT_BINARY_DIR}" Build.test_${build})
    set_tests_properties(build/${build} PROPERTIES TIMEOUT 900 LABELS slow COST 500)
  endforeach()
  set_tests_properties(build/uninstall_leaves_nothing_and_takes_only_its_own PROPERTIES
    RESOURCE_LOCK build_folder)
  add_test(NAME build/fuzz_corpus COMMAND "${PROJECT_SOURCE_DIR}/fuzz/run" --check)
  add_test(NAME build/lint COMMAND "${PROJECT_SOURCE_DIR}/scripts/lint")

  # What clang-tidy says of the library, the tools and the examples.
  list(JOIN GROUNDWORK_SUBSYSTEMS "|" folders)
  add_test(NAME build/tidy
    COMMAND run-clang-tidy -quiet -p "${PROJECT_BINARY_DIR}" -j 2
      "^${PROJECT_SOURCE_DIR}/(${folders}|tools|examples)/")
  set_tests_properties(build/tidy PROPERTIES TIMEOUT 900)

  # A library built for size keeps its limits, and encodes without the wide tables.
  set(small "${PROJECT_BINARY_DIR}/small")
  add_test(NAME build/size
    COMMAND "${PROJECT_SOURCE_DIR}/scripts/size" --check --keep "${small}" i386)
  set_tests_properties(build/size PROPERTIES TIMEOUT 900 FIXTURES_SETUP small_library)
  if(GROUNDWORK_CRYPT)
    add_test(NAME build/size_base64 COMMAND crypt_base64_test)
    set_tests_properties(build/size_base64 PROPERTIES FIXTURES_REQUIRED small_library
      LABELS slow
      ENVIRONMENT "LD_LIBRARY_PATH=${small}/i386")
  endif()
  # Instructions that the hot functions take, of the whole library as the preset builds it.
  if(GROUNDWORK_COMPLETE AND
     CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo" AND NOT CMAKE_CXX_FLAGS MATCHES "coverage")
    add_test(NAME build/instructions
      COMMAND "${PROJECT_SOURCE_DIR}/bench/instructions/run" --build "${PROJECT_BINARY_DIR}")
    set_tests_properties(build/instructions PROPERTIES TIMEOUT 300 SKIP_RETURN_CODE 77)
  endif()
  add_test(NAME build/debian_test COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/build/debian_test.py")
  add_test(NAME build/recipes COMMAND "${PROJECT_SOURCE_DIR}/scripts/check-recipes")
  set_tests_properties(build/lint build/debian_test build/recipes PROPERTIES TIMEOUT 900)
  # These build or read all of the library anew; ./test alone leaves them out.
  set_tests_properties(build/recipes build/size build/tidy PROPERTIES LABELS slow COST 600)
endif()
