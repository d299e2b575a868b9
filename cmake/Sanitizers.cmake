# SPDX-License-Identifier: MIT
# GROUNDWORK_SANITIZE: what the compiler is to check at run time, as in -fsanitize=. Everything is
# built with it. All other build files ask this variable.
set(GROUNDWORK_SANITIZE "" CACHE STRING
  "Sanitizers to build with, for example address,undefined or thread; empty: none")
if(GROUNDWORK_SANITIZE)
  set(_flags "-fsanitize=${GROUNDWORK_SANITIZE} -fno-omit-frame-pointer")
  if(GROUNDWORK_SANITIZE MATCHES "undefined")
    string(APPEND _flags " -fno-sanitize-recover=undefined")
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
      # C programs call destroy functions through types of their own.
      string(APPEND _flags " -fno-sanitize=function")
    endif()
  endif()
  string(APPEND CMAKE_C_FLAGS " ${_flags}")
  string(APPEND CMAKE_CXX_FLAGS " ${_flags}")
elseif(CMAKE_CXX_FLAGS MATCHES "-fsanitize=([a-z,]+)")
  set(GROUNDWORK_SANITIZE "${CMAKE_MATCH_1}")  # chosen by the flags of the compiler
endif()
