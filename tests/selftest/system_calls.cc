// SPDX-License-Identifier: MIT
// The system's functions for tests that stand in for them. Elsewhere such a test asks the
// loader for the next function of a name; a static program has no loader, so this answers.

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>

// As the library imports them on 32-bit targets.
// clang-format off
#define SYSTEM_CALLS(X) \
  X(__getsockopt64) X(__ioctl_time64) X(__nanosleep64) \
  X(__pthread_cond_timedwait64) X(__select64) X(close) X(connect) X(fgets) \
  X(gethostbyname2) \
  X(lseek64) X(mkdir) X(poll) X(pthread_cancel) X(pthread_cond_broadcast) \
  X(pthread_cond_destroy) X(pthread_cond_init) X(pthread_cond_signal) \
  X(pthread_cond_timedwait) X(pthread_cond_wait) X(pthread_create) \
  X(pthread_detach) X(pthread_join) X(pthread_mutex_destroy) X(pthread_mutex_lock) \
  X(pthread_mutex_trylock) X(pthread_mutex_unlock) X(read) X(readdir64) X(scandir64) X(send) \
  X(socket) X(statfs) X(statfs64) X(vsnprintf) X(write)
// clang-format on

// No module's own, so these are the C library's.
#define DECLARE(name) extern "C" void system_##name() __asm__(#name);
SYSTEM_CALLS(DECLARE)
#undef DECLARE

namespace {

struct Call {
  const char* name;
  void (*function)();
};
#define ENTRY(name) {#name, system_##name},
constexpr Call kCalls[] = {SYSTEM_CALLS(ENTRY)};
#undef ENTRY

}  // namespace

extern "C" void* dlsym(void*, const char* name) noexcept {
  for (const Call& call : kCalls) {
    if (std::strcmp(call.name, name) == 0) return reinterpret_cast<void*>(call.function);
  }
  std::fprintf(stderr, "a test asks for %s, which SYSTEM_CALLS lacks\n", name);
  std::abort();
}

extern "C" void* dlvsym(void*, const char* name, const char*) noexcept {
  return dlsym(nullptr, name);
}
