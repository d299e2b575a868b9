// A log line below the threshold against the same call of other loggers.
//
// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <log4c.h>
#include <syslog.h>

#include <atomic>
#include <cstdarg>

#include "support/job.h"

using namespace groundwork::bench;

namespace {

void suppressed_ours(State& state) {
  g_debug_set_level2(3);
  int number = 0;
  for (auto _ : state) g_log(0, "bench", __LINE__, "%s is now %d", "port", ++number);
  report(state, 1);
}

void suppressed_syslog(State& state) {
  setlogmask(LOG_UPTO(LOG_WARNING));
  int number = 0;
  for (auto _ : state) syslog(LOG_DEBUG, "%s is now %d", "port", ++number);
  report(state, 1);
}

void suppressed_log4c(State& state) {
  log4c_init();
  log4c_category_t* const category = log4c_category_get("bench");
  log4c_category_set_priority(category, LOG4C_PRIORITY_WARN);
  int number = 0;
  for (auto _ : state) {
    log4c_category_log(category, LOG4C_PRIORITY_DEBUG, "%s is now %d", "port", ++number);
  }
  report(state, 1);
}

std::atomic<int> threshold{3};

[[gnu::noinline]] int compare_only(int level, const char*, int, const char* format, ...) {
  if (level < threshold.load(std::memory_order_relaxed)) return 0;
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vfprintf(stderr, format, arguments);
  va_end(arguments);
  return length;
}

void suppressed_floor(State& state) {
  int number = 0;
  for (auto _ : state) compare_only(0, "bench", __LINE__, "%s is now %d", "port", ++number);
  report(state, 1);
}

}  // namespace

void groundwork::bench::register_jobs() {
  job("log.suppressed", "ours", suppressed_ours);
  job("log.suppressed", "syslog", suppressed_syslog);
  job("log.suppressed", "log4c", suppressed_log4c);
  job("log.suppressed", "floor", suppressed_floor);
}
