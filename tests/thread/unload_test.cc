// The library is closed while its threads run: it must stay where it is.
//
// SPDX-License-Identifier: MIT

#include <groundwork/timeout.h>
#include <groundwork/timer.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>
#include <unistd.h>

namespace {

std::atomic<int> timer_calls{0};
std::atomic<int> timeout_calls{0};

uint32_t count_timer(uint32_t interval, void*) {
  ++timer_calls;
  return interval;
}

int count_timeout(void*) {
  ++timeout_calls;
  return 1;
}

template <typename Function>
Function* find(void* library, const char* name) {
  void* const found = dlsym(library, name);
  if (found == nullptr) {
    std::printf("FAILED: no %s\n", name);
    std::exit(1);
  }
  return reinterpret_cast<Function*>(found);
}

#define FIND(library, function) find<decltype(function)>(library, #function)

void* load(const char* path) {
  void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::printf("FAILED: %s\n", dlerror());
    std::exit(1);
  }
  return library;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  alarm(60);
  void* const library = load(argv[1]);
  auto* const init = FIND(library, g_timer_init);
  auto* const add = FIND(library, g_add_timer);
  auto* const cleanup = FIND(library, g_timer_cleanup);
  auto* const new_timeout = FIND(library, g_timeout_new);
  auto* const free_timeout = FIND(library, g_timeout_free);
  FIND(library, g_start_ticks)();
  if (init() != 0 || add(10, count_timer, nullptr) == nullptr) return 3;
  GTimeout* const timeout = new_timeout("unload", 5, count_timeout, nullptr);
  if (timeout == nullptr) return 4;

  dlclose(library);
  timer_calls = 0;
  timeout_calls = 0;
  while (timer_calls < 5 || timeout_calls < 5) usleep(1000);

  // Opened again it is the same one, with its state.
  void* const again = load(argv[1]);
  if (FIND(again, g_timer_init) != init || init() != -1) {
    std::puts("FAILED: another copy was loaded");
    return 1;
  }
  free_timeout(timeout);
  cleanup();
  dlclose(again);
  return 0;
}
