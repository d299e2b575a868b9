// Whether a child of a process with threads may start threads.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_THREADS_OF_CHILDREN_H
#define GROUNDWORK_TESTS_SUPPORT_THREADS_OF_CHILDREN_H

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <fcntl.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

// True on every system; an emulator of programs may end such a child instead (QEMU 7.2
// does).
// Under the address sanitizer a child may find the sanitizer's list of threads locked for
// ever.
inline bool children_may_start_threads() {
#if defined(__SANITIZE_ADDRESS__)
  return false;
#endif
  static const bool may = [] {
    std::atomic<bool> done{false};
    std::thread other([&] {
      while (!done) usleep(1000);
    });
    const pid_t pid = fork();
    if (pid == 0) {
      alarm(30);
      const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
      dup2(nowhere, STDERR_FILENO);  // the emulator's complaint
      dup2(nowhere, STDOUT_FILENO);
      pthread_t thread;
      const int error = pthread_create(
          &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr);
      if (error != 0) _exit(1);
      pthread_join(thread, nullptr);
      _exit(0);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    done = true;
    other.join();
    return status == 0;
  }();
  return may;
}

}  // namespace test

// At the beginning of a test.
#define SKIP_UNLESS_CHILDREN_MAY_START_THREADS()                                   \
  if (!test::children_may_start_threads())                                         \
  GTEST_SKIP()                                                                     \
      << "this emulator or sanitizer cannot start threads in a child of a process" \
         " with threads"

#endif
