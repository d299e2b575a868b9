// What the soak keeps doing: each worker is one thread that uses one service of the library
// until the round ends, and checks its results.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_ENDURANCE_SOAK_WORKERS_H
#define GROUNDWORK_TESTS_ENDURANCE_SOAK_WORKERS_H

#include <groundwork/groundwork.h>
#include <pthread.h>

#include <atomic>
#include <string>

namespace test {

// What the workers of one round share.
struct SoakRound {
  std::string directory;  // of the soak's own
  std::string url;        // of the server inside this process
  std::string body;       // what that serves, and what the file `directory`/body holds

  std::atomic<bool> stopping{false};
  GQueue* queue = nullptr;
  GThreadEvent* queue_filled = nullptr;
  GFifo* fifo = nullptr;
  GConf* conf = nullptr;
  pthread_rwlock_t conf_in_use;      // taken alone by what the conf does not lock itself
  std::atomic<int> conf_changes{0};  // seen by its callback
  std::atomic<int> consumers{0};     // of the queue, that still run
};

struct SoakWorker {
  const char* name;
  // One turn. Called again and again with its number, until the round stops.
  void (*turn)(SoakRound& round, int number);
  long long turns = 0;  // in all rounds; read when its thread has ended
};

// Null-terminated by name.
extern SoakWorker soak_workers[];

// Makes what the workers share, and gives it back when they have ended.
void begin_round(SoakRound& round);
void end_round(SoakRound& round);

// Promises of the library that were not kept, and lines that it logged without a reason.
extern std::atomic<int> soak_failures;
extern std::atomic<int> soak_log_lines;
void soak_failed(const char* file, int line, const char* what);

}  // namespace test

#define SOAK_CHECK(condition) \
  ((condition) ? (void)0 : test::soak_failed(__FILE__, __LINE__, #condition))

#endif
