// How often timers wake the processor, and what they cost it: the timer service as it is
// and in its power-saving mode, beside libevent. Not one of the jobs of bench/run, since it
// takes its time:
//
//   safe_timer_wakeups [SECONDS]
//
// For each number of timers and interval the three run in a process each, all at the same
// time. A wake-up is a voluntary switch of context in any thread but the first.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <groundwork/timer.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include <dirent.h>
#include <event2/event.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace {

struct Load {
  int timers;
  int interval;  // in milliseconds
};
constexpr Load kLoads[] = {{0, 1000}, {1, 1000}, {1, 100}, {10, 100}, {1, 10}};

std::atomic<unsigned> calls;

uint32_t count_call(uint32_t interval, void* /*param*/) {
  ++calls;
  return interval;
}

void start_service(const Load& load, bool saves_power) {
  g_timer_save_power(saves_power ? 1 : 0);
  g_timer_init();
  for (int i = 0; i < load.timers; ++i) g_add_timer(load.interval, count_call, nullptr);
}

void start_libevent(const Load& load) {
  event_base* const base = event_base_new();
  const timeval interval = {load.interval / 1000, load.interval % 1000 * 1000};
  const auto fire = [](evutil_socket_t, short, void*) { ++calls; };
  for (int i = 0; i < load.timers; ++i) {
    event_add(event_new(base, -1, EV_PERSIST, fire, nullptr), &interval);
  }
  std::thread([base] { event_base_loop(base, EVLOOP_NO_EXIT_ON_EMPTY); }).detach();
}

long switches_of(const std::string& thread) {
  std::FILE* const status =
      std::fopen(("/proc/self/task/" + thread + "/status").c_str(), "r");
  if (status == nullptr) return 0;
  long count = 0;
  char line[256];
  while (std::fgets(line, sizeof line, status) != nullptr) {
    if (std::sscanf(line, "voluntary_ctxt_switches: %ld", &count) == 1) break;
  }
  std::fclose(status);
  return count;
}

long wakeups() {
  long sum = 0;
  DIR* const tasks = opendir("/proc/self/task");
  while (const dirent* const task = readdir(tasks)) {
    const int number = std::atoi(task->d_name);
    if (number != 0 && number != getpid()) sum += switches_of(task->d_name);
  }
  closedir(tasks);
  return sum;
}

double processor_time() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

[[noreturn]] void measure(const char* who, const Load& load, unsigned seconds) {
  sleep(1);
  const long wakeups_before = wakeups();
  const unsigned calls_before = calls;
  const double time_before = processor_time();
  sleep(seconds);
  const double time = (processor_time() - time_before) / seconds;
  std::printf("%2d timers of %4d ms  %-12s %7.2f wake-ups/s %7.2f calls/s %8.1f us/s\n",
              load.timers, load.interval, who,
              static_cast<double>(wakeups() - wakeups_before) / seconds,
              static_cast<double>(calls - calls_before) / seconds, time);
  std::fflush(stdout);
  _exit(0);
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned seconds = argc > 1 ? static_cast<unsigned>(std::atoi(argv[1])) : 60;
  for (const Load& load : kLoads) {
    if (fork() == 0) {
      start_service(load, true);
      measure("saving power", load, seconds);
    }
    if (fork() == 0) {
      start_service(load, false);
      measure("ours", load, seconds);
    }
    if (fork() == 0) {
      start_libevent(load);
      measure("libevent", load, seconds);
    }
    while (wait(nullptr) > 0) continue;
  }
}
