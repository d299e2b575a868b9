# SPDX-License-Identifier: MIT
# The tests are built with GoogleTest, from its sources. Where these are missing, the library is
# built without its tests.
set(GROUNDWORK_GOOGLETEST_DIR "/usr/src/googletest" CACHE PATH
  "Sources of GoogleTest; they are built for the target")
if(BUILD_TESTING AND
   NOT EXISTS "${GROUNDWORK_GOOGLETEST_DIR}/googletest/src/gtest-all.cc")
  message(STATUS "Tests: off, no sources of GoogleTest in ${GROUNDWORK_GOOGLETEST_DIR}"
    " (package libgtest-dev; -DGROUNDWORK_GOOGLETEST_DIR=...)")
  set(BUILD_TESTING OFF)
endif()
