// The address sanitizer's idea of formats: with a precision from the arguments it wants the
// text of "%s" terminated, and it knows nothing of odd conversions.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_FUZZ_STR_SANITIZER_OPTIONS_H
#define GROUNDWORK_FUZZ_STR_SANITIZER_OPTIONS_H

// The sanitizer asks for its options by this name.
extern "C" const char* __asan_default_options();
const char* __asan_default_options() {
  return "check_printf=0";
}

#endif
