// SPDX-License-Identifier: MIT

#include "selftest/board_facts.h"

#include <groundwork/groundwork.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>
#ifdef __GLIBC__
#include <gnu/libc-version.h>
#else
extern "C" [[gnu::weak]] const char __libc_version[];  // musl's, in its archive alone
#endif

namespace {

std::string c_library() {
#ifdef __GLIBC__
  return std::string("glibc ") + gnu_get_libc_version();
#else
  return &__libc_version != nullptr ? std::string("musl ") + __libc_version : "not glibc";
#endif
}

int64_t nanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

struct Spread {
  double median;
  double worst;
};

Spread spread(std::vector<double> values) {
  if (values.empty()) return {0, 0};
  std::sort(values.begin(), values.end());
  return {values[values.size() / 2], values.back()};
}

void write_clock(const char* prefix) {
  timespec resolution{};
  clock_getres(CLOCK_MONOTONIC, &resolution);
  int64_t step = INT64_MAX;
  for (int i = 0; i < 1000; ++i) {
    const int64_t before = nanoseconds();
    int64_t after = before;
    while (after == before) after = nanoseconds();
    step = std::min(step, after - before);
  }
  std::printf(
      "%sclock: resolution %lld ns, smallest step seen %lld ns\n", prefix,
      static_cast<long long>(resolution.tv_sec) * 1'000'000'000 + resolution.tv_nsec,
      static_cast<long long>(step));
}

void write_sleep_jitter(const char* prefix) {
  std::vector<double> late;
  for (int i = 0; i < 50; ++i) {
    const int64_t before = nanoseconds();
    g_delay(10);
    late.push_back(static_cast<double>(nanoseconds() - before - 10'000'000) / 1000);
  }
  const Spread found = spread(std::move(late));
  std::printf("%ssleep of 10 ms: late by %.0f us (median), %.0f us (worst of 50)\n", prefix,
              found.median, found.worst);
}

struct Firings {
  std::atomic<int> count{0};
  int64_t times[64];
};

uint32_t note_firing(uint32_t interval, void* param) {
  auto& firings = *static_cast<Firings*>(param);
  const int index = firings.count.load();
  if (index == 50) return 0;
  firings.times[index] = nanoseconds();
  firings.count.store(index + 1);
  return interval;
}

// The service tells on standard output that it ends; that is not for the report.
class SilencedOutput {
 public:
  SilencedOutput() {
    std::fflush(stdout);
    before_ = dup(STDOUT_FILENO);
    const int silence = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(silence, STDOUT_FILENO);
    close(silence);
  }
  ~SilencedOutput() {
    std::fflush(stdout);
    dup2(before_, STDOUT_FILENO);
    close(before_);
  }

 private:
  int before_;
};

void write_timer_jitter(const char* prefix) {
  static Firings firings;
  {
    const SilencedOutput silenced;
    g_start_ticks();
    g_timer_init();
    g_add_timer(20, note_firing, &firings);
    for (int i = 0; i < 500 && firings.count < 50; ++i) g_delay(10);
    g_timer_cleanup();
  }
  std::vector<double> off;
  for (int i = 1; i < firings.count; ++i) {
    const double period =
        static_cast<double>(firings.times[i] - firings.times[i - 1]) / 1000;
    off.push_back(period > 20'000 ? period - 20'000 : 20'000 - period);
  }
  const Spread found = spread(std::move(off));
  std::printf("%stimer of 20 ms: off by %.0f us (median), %.0f us (worst of %d)\n", prefix,
              found.median, found.worst, firings.count.load());
}

void write_lock_cost(const char* prefix) {
  constexpr int kPairs = 100'000;
  GMutex* const mutex = g_thread_mutex_new();
  const int64_t before = nanoseconds();
  for (int i = 0; i < kPairs; ++i) {
    g_thread_mutex_lock(mutex);
    g_thread_mutex_unlock(mutex);
  }
  std::printf("%smutex: %.0f ns to lock and unlock\n", prefix,
              static_cast<double>(nanoseconds() - before) / kPairs);
  g_thread_mutex_free(mutex);
}

void write_sync_cost(const char* prefix) {
  const char* const folder = std::getenv("TMPDIR");
  std::string path = std::string(folder != nullptr ? folder : "/tmp") + "/selftest-XXXXXX";
  const int descriptor = mkstemp(path.data());
  if (descriptor < 0) {
    std::printf("%sfile sync: no file can be made in %s\n", prefix, path.c_str());
    return;
  }
  unlink(path.c_str());
  const std::vector<char> page(4096, 'x');
  std::vector<double> costs;
  bool works = true;
  for (int i = 0; i < 20 && works; ++i) {
    const int64_t before = nanoseconds();
    works = write(descriptor, page.data(), page.size()) == 4096 && fsync(descriptor) == 0;
    costs.push_back(static_cast<double>(nanoseconds() - before) / 1000);
  }
  close(descriptor);
  const Spread found = spread(std::move(costs));
  std::printf(
      "%sfile sync: %.0f us (median), %.0f us (worst of 20) to write and sync 4 KB%s\n",
      prefix, found.median, found.worst, works ? "" : "; it failed");
}

}  // namespace

void write_board_facts(const char* prefix) {
  utsname system{};
  uname(&system);
  std::printf("%sboard: %s %s, %s, %ld processors, pages of %ld bytes\n", prefix,
              system.sysname, system.release, system.machine, sysconf(_SC_NPROCESSORS_ONLN),
              sysconf(_SC_PAGESIZE));
  std::printf("%sC library: %s, part of this program\n", prefix, c_library().c_str());
  write_clock(prefix);
  write_sleep_jitter(prefix);
  write_timer_jitter(prefix);
  write_lock_cost(prefix);
  write_sync_cost(prefix);
  std::fflush(stdout);
}
