// Programs that were started, or went on, without standard descriptors.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_CLOSED_DESCRIPTORS_H
#define GROUNDWORK_TESTS_SUPPORT_CLOSED_DESCRIPTORS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

using Descriptors = std::vector<int>;

inline const Descriptors kClosedSets[] = {{0}, {1}, {2}, {1, 2}, {0, 1}, {0, 2}, {0, 1, 2}};

inline std::string to_text(const Descriptors& descriptors) {
  std::string text = "closed:";
  for (const int fd : descriptors) text += " " + std::to_string(fd);
  return text;
}

inline bool is_open(int fd) {
  return fcntl(fd, F_GETFD) != -1;
}

// Runs `work` in a child that has closed these descriptors, and returns the text that it
// returns there.
template <typename Work>
std::string run_without(const Descriptors& closed, Work work) {
  int result[2];
  EXPECT_EQ(pipe(result), 0);
  const pid_t child = fork();
  if (child == 0) {
    const int report = fcntl(result[1], F_DUPFD_CLOEXEC, 100);
    for (const int fd : closed) close(fd);
    const std::string text = work();
    const bool is_written =
        write(report, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    _exit(is_written ? 0 : 1);
  }
  close(result[1]);
  std::string text;
  char buffer[256];
  for (ssize_t count; (count = read(result[0], buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<size_t>(count));
  }
  close(result[0]);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  return text;
}

// Which of the closed descriptors 1 and 2 are open again: "" for none.
inline std::string taken_outputs(const Descriptors& closed) {
  std::string text;
  for (const int fd : closed) {
    if (fd != 0 && is_open(fd)) text += " descriptor " + std::to_string(fd) + " is taken";
  }
  return text;
}

}  // namespace test

#endif
