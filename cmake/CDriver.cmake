# SPDX-License-Identifier: MIT
# The libraries are C++ but link with the C driver. When only CMAKE_CXX_COMPILER is given
# (a cross build, say), the C compiler is the one of the same tool chain, never the host's.
if(CMAKE_CXX_COMPILER AND NOT CMAKE_C_COMPILER)
  get_filename_component(_cxx_name "${CMAKE_CXX_COMPILER}" NAME)
  get_filename_component(_cxx_dir "${CMAKE_CXX_COMPILER}" DIRECTORY)
  string(REGEX REPLACE "g\\+\\+" "gcc" _c_name "${_cxx_name}")
  string(REGEX REPLACE "clang\\+\\+" "clang" _c_name "${_c_name}")
  string(REGEX REPLACE "c\\+\\+" "cc" _c_name "${_c_name}")
  find_program(_c_driver NAMES "${_c_name}" HINTS "${_cxx_dir}" NO_CACHE)
  if(_c_driver)
    set(CMAKE_C_COMPILER "${_c_driver}" CACHE FILEPATH "C compiler beside CMAKE_CXX_COMPILER")
  endif()
  unset(_c_driver)
endif()
