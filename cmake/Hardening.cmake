# SPDX-License-Identifier: MIT
# What finds an overrun in the field before it does harm. Neither changes what a call returns.
function(groundwork_hardening target)
  # For size, only functions with a buffer on the stack are guarded: guarding each local whose
  # address is taken costs 5 % of the code.
  target_compile_options(${target} PRIVATE
    $<IF:$<CONFIG:MinSizeRel>,-fstack-protector,-fstack-protector-strong>)
  # Needs optimisation; the sanitizers bring checks of their own.
  string(TOUPPER "CMAKE_CXX_FLAGS_${CMAKE_BUILD_TYPE}" flags_of_type)
  set(flags "${CMAKE_CXX_FLAGS} ${${flags_of_type}}")
  if(flags MATCHES "-O[1-3sz]" AND NOT flags MATCHES "-O0|--coverage" AND NOT GROUNDWORK_SANITIZE)
    target_compile_options(${target} PRIVATE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    # Without it: formats of callers (checked formatting ends a program that writes through
    # %n), and reads of a stream (a program that replaces read() is to see each one).
    set_property(SOURCE core/log.cc str/printf.cc url/file.cc
      APPEND PROPERTY COMPILE_OPTIONS -U_FORTIFY_SOURCE)
  endif()
endfunction()
