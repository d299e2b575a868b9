// Soak test: runs all services side by side, for as long as requested.
//
//   soak SECONDS
//
// Works in rounds. Each one starts all services, uses each on a thread of its own, and
// stops them; then it counts memory, descriptors and threads. The first rounds fill the C
// library's caches; after them nothing may grow. Prints one line, and exits with 1 if
// something grew or a check failed.
//
// SPDX-License-Identifier: MIT

#include <dirent.h>
#include <groundwork/groundwork.h>
#include <groundwork/url.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "endurance/soak_server.h"
#include "endurance/soak_workers.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
extern "C" size_t __sanitizer_get_current_allocated_bytes();
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

namespace {

constexpr int kWarmUpRounds = 2;
// The sanitizers count each block. The C library also counts the blocks in its own caches.
constexpr long kHeapSlack = kSanitized ? 1024 : 16 * 1024;
// Allows for fragmentation: an equally full heap may use more pages.
constexpr long kResidentSlackKib = 2048;

struct Counts {
  long heap_bytes;    // in use
  long resident_kib;  // as the kernel sees it; of the emulator, if one is in between
  int descriptors;
  int threads;
};

double now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

int entries(const char* directory) {
  DIR* const stream = opendir(directory);
  if (stream == nullptr) return -1;
  int count = 0;
  while (readdir(stream) != nullptr) ++count;
  closedir(stream);
  return count - 2;  // "." and ".."
}

// Asks for each: a list would be one more, and an emulator lists its own too.
int open_descriptors() {
  int count = 0;
  for (int descriptor = 0; descriptor < 1024; ++descriptor) {
    const int copy = dup(descriptor);
    if (copy == -1) continue;
    close(copy);
    ++count;
  }
  return count;
}

long resident_kib() {
  FILE* const file = std::fopen("/proc/self/status", "re");
  if (file == nullptr) return -1;
  long kib = -1;
  char line[256];
  while (std::fgets(line, sizeof line, file) != nullptr) {
    if (std::sscanf(line, "VmRSS: %ld", &kib) == 1) break;
  }
  std::fclose(file);
  return kib;
}

long heap_bytes() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return static_cast<long>(__sanitizer_get_current_allocated_bytes());
#else
#ifdef __GLIBC__
  const struct mallinfo2 info = mallinfo2();
  return static_cast<long>(info.uordblks + info.hblkhd);
#else
  return 0;  // a heap that keeps no figures: memory of the process alone is looked at
#endif
#endif
}

// A timeout that ended by itself, or a cancelled thread, is joined or detached before its
// last instructions: the kernel may count it a moment longer.
int settled_threads(int expected) {
  int threads = entries("/proc/self/task");
  for (int i = 0; i < 100 && threads > expected; ++i) {
    g_delay(20);
    threads = entries("/proc/self/task");
  }
  return threads;
}

Counts count(int expected_threads) {
  const int threads = settled_threads(expected_threads);
  return {heap_bytes(), resident_kib(), open_descriptors(), threads};
}

// Counts the workers' own lines. One line of the library may come: the thread of the timers
// can start before their lock exists.
int take_line(const char* text, void* lines) {
  if (std::strncmp(text, "turn ", 5) == 0) {
    ++*static_cast<std::atomic<int>*>(lines);
  } else if (std::strstr(text, "'mutex != NULL' FAILED.") == nullptr) {
    test::soak_failed("log", 0, text);
  }
  return 0;
}

// The directory of this run, removed at its end.
struct OwnDirectory {
  std::string path =
      std::string(std::getenv("TMPDIR") != nullptr ? std::getenv("TMPDIR") : "/tmp") +
      "/groundwork-soak-XXXXXX";
  OwnDirectory() {
    if (mkdtemp(path.data()) == nullptr) std::abort();
  }
  ~OwnDirectory() { g_rmdir(path.c_str()); }
};

struct Job {
  test::SoakWorker* worker;
  test::SoakRound* round;
  std::atomic<bool> done{false};
};

void* work(void* argument) {
  auto* const job = static_cast<Job*>(argument);
  int number = 0;
  while (!job->round->stopping) job->worker->turn(*job->round, number++);
  job->worker->turns += number;
  job->done = true;
  return nullptr;
}

void run_round(test::SoakRound& round, double seconds) {
  begin_round(round);
  g_start_ticks();
  SOAK_CHECK(g_timer_init() == 0);
  std::vector<Job> jobs(32);
  std::vector<GThread*> threads;
  for (auto* worker = test::soak_workers; worker->name != nullptr; ++worker) {
    Job& job = jobs[threads.size()];
    job.worker = worker;
    job.round = &round;
    threads.push_back(g_thread_create(work, &job, worker->name));
  }
  const double end = now() + seconds;
  while (now() < end) g_delay(20);
  round.stopping = true;
  for (size_t i = 0; i < threads.size(); ++i) {
    // Wakes a worker that waits for the event until it has seen the end.
    while (!jobs[i].done) {
      g_thread_event_broadcast(round.queue_filled);
      g_delay(2);
    }
    g_thread_wait(threads[i]);
  }
  g_timer_cleanup();
  end_round(round);
}

bool is_flat(const Counts& first, const Counts& last, bool emulated) {
  const bool resident =
      kSanitized || emulated || last.resident_kib <= first.resident_kib + kResidentSlackKib;
  return last.heap_bytes <= first.heap_bytes + kHeapSlack && resident &&
         last.descriptors == first.descriptors && last.threads == first.threads;
}

// What all rounds came to.
struct Outcome {
  int rounds = 0;
  double seconds = 0;
  Counts first{};  // after the warm-up
  Counts last{};
};

// Runs rounds for so many seconds, at least two after the warm-up.
Outcome run_rounds(double seconds, const std::string& directory, const std::string& body) {
  const std::string file = directory + "/body";
  g_file_touch(file.c_str());
  g_file_write_buf(file.c_str(), body.data(), static_cast<int>(body.size()));
  const test::SoakServer server(body);
  const double started = now();
  const double round_seconds = std::clamp(seconds / 8, 0.25, 5.0);
  const int own_threads = entries("/proc/self/task");
  Outcome outcome;
  do {
    test::SoakRound round;
    round.directory = directory;
    round.url = server.url();
    round.body = body;
    run_round(round, round_seconds);
    outcome.last = count(own_threads);
    if (++outcome.rounds <= kWarmUpRounds) outcome.first = outcome.last;
  } while (now() - started + round_seconds / 2 < seconds ||
           outcome.rounds < kWarmUpRounds + 2);
  outcome.seconds = now() - started;
  return outcome;
}

void report(int descriptor, const Outcome& outcome, bool is_outcome_flat) {
  long long turns = 0;
  std::string shares;
  for (auto* worker = test::soak_workers; worker->name != nullptr; ++worker) {
    turns += worker->turns;
    shares += std::string(shares.empty() ? "" : ", ") + worker->name + " " +
              std::to_string(worker->turns);
    SOAK_CHECK(worker->turns > 0);
  }
  const Counts& first = outcome.first;
  const Counts& last = outcome.last;
  dprintf(descriptor,
          "soak: %.0f s, %d rounds, %lld turns, %d failed checks; heap %ld to %ld bytes, "
          "resident %ld to %ld KiB, descriptors %d to %d, threads %d to %d: %s\n%s\n",
          outcome.seconds, outcome.rounds, turns, test::soak_failures.load(),
          first.heap_bytes, last.heap_bytes, first.resident_kib, last.resident_kib,
          first.descriptors, last.descriptors, first.threads, last.threads,
          is_outcome_flat ? "flat" : "NOT FLAT", shares.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 0;
  if (seconds <= 0) {
    std::fprintf(stderr, "usage: soak SECONDS [emulated]\n");
    return 2;
  }
  const bool is_emulated = argc > 2 && std::strcmp(argv[2], "emulated") == 0;
  // The timer service prints what it does; other tests check that.
  const int output = dup(1);
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 2;

  std::string body;
  for (int i = 0; i < 200; ++i) body += "line " + std::to_string(i) + " of the body\n";
  const OwnDirectory directory;
  g_debug_set_handler(take_line, &test::soak_log_lines);
  g_debug_set_level2(3);
  url_add_modules(&URL_module_file, &URL_module_http, static_cast<URL_module*>(nullptr));

  const Outcome outcome = run_rounds(seconds, directory.path, body);
  const bool flat = is_flat(outcome.first, outcome.last, is_emulated);
  report(output, outcome, flat);
  g_debug_set_handler(nullptr, nullptr);
  return flat && test::soak_failures == 0 ? 0 : 1;
}
