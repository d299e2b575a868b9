// The C library's functions in a program that defines some of the same names: the library's
// calls come to the program's, which come first, and these go on to the C library's.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_NEXT_FUNCTION_H
#define GROUNDWORK_TESTS_SUPPORT_NEXT_FUNCTION_H

#include <cerrno>

#include <dlfcn.h>

namespace test {

// By its symbol: with offsets or times of 64 bits that may be another name than in the
// source.
template <typename Function>
Function* next_function(const char* symbol) {
  const int kept = errno;
  void* const found = dlsym(RTLD_NEXT, symbol);
  errno = kept;
  return reinterpret_cast<Function*>(found);
}

}  // namespace test

#endif
