// A saver that is killed at each call of the system in turn.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_CRASH_KILLED_H
#define GROUNDWORK_TESTS_CRASH_KILLED_H

#include <groundwork/safe.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <string>

#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

#include "crash/recorder.h"
#include "support/temporary_directory.h"

namespace crash {

inline int temporaries_in(const std::string& path) {
  int count = 0;
  DIR* const directory = opendir(path.c_str());
  while (const dirent* const entry = readdir(directory)) {
    const std::string name = entry->d_name;
    count += name.starts_with(".f") ? 1 : 0;
  }
  closedir(directory);
  return count;
}

// Runs `save` in a child that is killed at its `nth` call of the system, if it makes so
// many. Returns the child's status.
template <typename Save>
int status_of_killed(int nth, Save save) {
  const pid_t child = fork();
  if (child == 0) {
    kill_at_call(nth);
    const int result = save();
    kill_at_call(0);
    _exit(result == 0 ? 0 : 1);
  }
  EXPECT_NE(child, -1);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

// `save` replaces the old content of the file with the new, and returns 0. Whenever it is
// killed, one of the two must be there, and the next replacement must succeed.
template <typename Save>
void expect_survives_kills(const char* name, const std::string& old_content,
                           const std::string& new_content, Save save) {
  constexpr int kTooMany = 1000;
  int killed = 0;
  int is_new = 0;
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, kTooMany);
    SCOPED_TRACE(testing::Message() << name << ", killed at call " << nth);
    const test::TemporaryDirectory directory;
    const std::string path = directory.write("f", old_content);
    const int status = status_of_killed(nth, [&] { return save(path); });
    const std::string content = test::read_file(path);
    if (WIFEXITED(status)) {
      ASSERT_EQ(WEXITSTATUS(status), 0);
      EXPECT_EQ(content, new_content);
      EXPECT_EQ(temporaries_in(directory.path()), 0);
      break;
    }
    ASSERT_EQ(WTERMSIG(status), SIGKILL);
    ++killed;
    is_new += content == new_content ? 1 : 0;
    EXPECT_TRUE(content == old_content || content == new_content);
    EXPECT_LE(temporaries_in(directory.path()), 1);
    // The lock ended with the process, and its left-over is removed.
    EXPECT_EQ(g_file_replace(path.c_str(), "again", 5), 0);
    EXPECT_EQ(test::read_file(path), "again");
    EXPECT_EQ(temporaries_in(directory.path()), 0);
    if (testing::Test::HasFailure()) return;
  }
  std::printf("%-40s killed at %d calls, then %d times new\n", name, killed, is_new);
  EXPECT_GT(killed, 5);
  EXPECT_GT(is_new, 0);
  EXPECT_LT(is_new, killed);
}

}  // namespace crash

#endif
