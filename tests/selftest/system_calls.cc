// SPDX-License-Identifier: MIT
// The system's functions for tests that stand in for them (system_calls.inc, by stand-ins).
// Elsewhere such a test asks the loader for the next function of a name; a static program
// has no loader, so this answers.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>

// No module's own, so these are the C library's.
#define X(name) extern "C" void system_##name() __asm__(#name);
#include "system_calls.inc"
#undef X

namespace {

struct Call {
  const char* name;
  void (*function)();
};
#define X(name) {#name, system_##name},
constexpr Call kCalls[] = {
#include "system_calls.inc"
};
#undef X

}  // namespace

namespace {

bool is_name(const char* name, const char* asked) {
  if (std::strcmp(name, asked) == 0) return true;
#ifndef __GLIBC__
  // With musl "lseek64" is another name of lseek.
  const size_t length = std::strlen(name);
  return std::strncmp(name, asked, length) == 0 && std::strcmp(asked + length, "64") == 0;
#else
  return false;
#endif
}

}  // namespace

extern "C" void* dlsym(void*, const char* name) noexcept {
  for (const Call& call : kCalls) {
    if (is_name(call.name, name)) return reinterpret_cast<void*>(call.function);
  }
  std::fprintf(stderr, "a test asks for %s, which no test stands in for\n", name);
  std::abort();
}

extern "C" void* dlvsym(void*, const char* name, const char*) noexcept {
  return dlsym(nullptr, name);
}
