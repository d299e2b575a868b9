// The timer service against libev: processor time of the whole process while timers run.
//
// SPDX-License-Identifier: MIT

#include <groundwork/timer.h>

#include <ev.h>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "support/job.h"

using namespace groundwork::bench;

namespace {

constexpr int kInterval = 10;     // ms
constexpr double kSeconds = 0.5;  // for each measurement
constexpr int kPeriods = static_cast<int>(kSeconds * 1000 / kInterval);

std::atomic<uint32_t> fired;

uint32_t count(uint32_t interval, void* /*param*/) {
  fired.store(fired.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  return interval;
}

void sleep_ms(int ms) {
  timeval time{};
  time.tv_sec = ms / 1000;
  time.tv_usec = ms % 1000 * 1000;
  select(0, nullptr, nullptr, nullptr, &time);
}

// The service reports its end on standard output, which must hold nothing but the figures.
void stop_quietly() {
  std::fflush(stdout);
  const int kept = dup(STDOUT_FILENO);
  const int nowhere = open("/dev/null", O_WRONLY);
  dup2(nowhere, STDOUT_FILENO);
  g_timer_cleanup();
  std::fflush(stdout);
  dup2(kept, STDOUT_FILENO);
  close(nowhere);
  close(kept);
}

void many_ours(State& state) {
  g_start_ticks();
  g_timer_init();
  for (int i = 0; i < state.range(0); ++i) g_add_timer(kInterval, count, nullptr);
  sleep_ms(5 * kInterval);
  fired = 0;
  for (auto _ : state) sleep_ms(static_cast<int>(kSeconds * 1000));
  report(state, static_cast<double>(fired));
  stop_quietly();
}

void count_ev(struct ev_loop* /*loop*/, ev_timer* /*timer*/, int /*events*/) {
  count(0, nullptr);
}

void stop_ev(struct ev_loop* loop, ev_timer* /*timer*/, int /*events*/) {
  ev_break(loop, EVBREAK_ALL);
}

ev_timer timer_of(void (*callback)(struct ev_loop*, ev_timer*, int), double after,
                  double repeat) {
  ev_timer timer{};
  timer.cb = callback;
  timer.at = after;
  timer.repeat = repeat;
  return timer;
}

void many_ev(State& state) {
  struct ev_loop* const loop = ev_loop_new(EVFLAG_AUTO);
  std::vector<ev_timer> timers(static_cast<size_t>(state.range(0)),
                               timer_of(count_ev, kInterval / 1e3, kInterval / 1e3));
  for (ev_timer& timer : timers) ev_timer_start(loop, &timer);
  ev_timer end = timer_of(stop_ev, kSeconds, 0);
  ev_timer_start(loop, &end);
  fired = 0;
  for (auto _ : state) ev_run(loop, 0);
  report(state, static_cast<double>(fired));
  ev_loop_destroy(loop);
}

// A sleep, and all callbacks in a row.
void many_floor(State& state) {
  std::vector<GTimerCallback> callbacks(static_cast<size_t>(state.range(0)), count);
  fired = 0;
  for (auto _ : state) {
    for (int i = 0; i < kPeriods; ++i) {
      for (const GTimerCallback callback : callbacks) DoNotOptimize(callback(0, nullptr));
      sleep_ms(kInterval);
    }
  }
  report(state, static_cast<double>(fired));
}

void idle_ours(State& state) {
  g_start_ticks();
  g_timer_init();
  for (auto _ : state) sleep_ms(static_cast<int>(kSeconds * 1000));
  report(state, kPeriods);
  stop_quietly();
}

void idle_sleeps(State& state) {
  for (auto _ : state) {
    for (int i = 0; i < kPeriods; ++i) sleep_ms(kInterval);
  }
  report(state, kPeriods);
}

// The oldest timer goes and a new one comes, as time-outs of connections do.
void replace_ours(State& state) {
  g_start_ticks();
  g_timer_init();
  std::vector<GTimerEntry*> timers(static_cast<size_t>(state.range(0)));
  for (GTimerEntry*& timer : timers) timer = g_add_timer(1'000'000, count, nullptr);
  size_t oldest = 0;
  for (auto _ : state) {
    g_remove_timer(timers[oldest]);
    timers[oldest] = g_add_timer(1'000'000, count, nullptr);
    if (++oldest == timers.size()) oldest = 0;
  }
  report(state, 1);
  stop_quietly();
}

void replace_ev(State& state) {
  struct ev_loop* const loop = ev_loop_new(EVFLAG_AUTO);
  std::vector<ev_timer> timers(static_cast<size_t>(state.range(0)),
                               timer_of(count_ev, 1000, 1000));
  for (ev_timer& timer : timers) ev_timer_start(loop, &timer);
  size_t oldest = 0;
  for (auto _ : state) {
    ev_timer_stop(loop, &timers[oldest]);
    timers[oldest] = timer_of(count_ev, 1000, 1000);
    ev_timer_start(loop, &timers[oldest]);
    if (++oldest == timers.size()) oldest = 0;
  }
  ev_loop_destroy(loop);
  report(state, 1);
}

void ticks_ours(State& state) {
  g_start_ticks();
  for (auto _ : state) DoNotOptimize(g_get_ticks());
  report(state, 1);
}

void ticks_gettimeofday(State& state) {
  for (auto _ : state) {
    timeval now{};
    DoNotOptimize(gettimeofday(&now, nullptr));
    DoNotOptimize(now);
  }
  report(state, 1);
}

template <typename Run>
void timed(const char* name, const char* who, Run run, int timers) {
  auto* const added = job(name, who, run)->Iterations(1)->MeasureProcessCPUTime();
  if (timers != 0) added->Arg(timers);
}

}  // namespace

void groundwork::bench::register_jobs() {
  timed("timer.many", "ours", many_ours, 10'000);
  timed("timer.many", "libev", many_ev, 10'000);
  timed("timer.many", "floor", many_floor, 10'000);
  timed("timer.idle", "ours", idle_ours, 0);
  timed("timer.idle", "sleeps", idle_sleeps, 0);
  job("timer.replace", "ours", replace_ours)->Arg(100)->Arg(10'000);
  job("timer.replace", "libev", replace_ev)->Arg(100)->Arg(10'000);
  job("ticks", "ours", ticks_ours);
  job("ticks", "gettimeofday", ticks_gettimeofday);
}
