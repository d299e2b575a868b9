# SPDX-License-Identifier: MIT
# With g++-12-multilib alone, a -m32 compilation does not find <asm/*.h>: the link that
# gcc-multilib would make conflicts with the cross compilers. The 64-bit folder serves,
# searched last.
include(CheckCXXSourceCompiles)
check_cxx_source_compiles("#include <errno.h>
int main() { return errno; }" GROUNDWORK_FINDS_ASM_HEADERS)
if(NOT GROUNDWORK_FINDS_ASM_HEADERS)
  execute_process(COMMAND ${CMAKE_C_COMPILER} -print-multiarch
    OUTPUT_VARIABLE _multiarch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  foreach(_folder IN ITEMS "/usr/include/${_multiarch}" "/usr/include/x86_64-linux-gnu")
    if(EXISTS "${_folder}/asm/errno.h")
      string(APPEND CMAKE_C_FLAGS " -idirafter ${_folder}")
      string(APPEND CMAKE_CXX_FLAGS " -idirafter ${_folder}")
      break()
    endif()
  endforeach()
endif()
