// What the tests of whole files share.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SAFE_FILE_SUPPORT_H
#define GROUNDWORK_TESTS_SAFE_FILE_SUPPORT_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <dirent.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/temporary_directory.h"

namespace test {

// Or a directory of some disks looks empty.
static_assert(sizeof(off_t) == 8 && sizeof(ino_t) == 8);

// The names in a directory, sorted.
inline std::vector<std::string> names_in(const std::string& path) {
  std::vector<std::string> names;
  DIR* const directory = opendir(path.c_str());
  EXPECT_NE(directory, nullptr) << path;
  if (directory == nullptr) return names;
  errno = 0;
  while (const dirent* const entry = readdir(directory)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  EXPECT_EQ(errno, 0) << path << ": " << std::strerror(errno);
  closedir(directory);
  std::sort(names.begin(), names.end());
  return names;
}

inline struct stat status_of(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path << ": " << std::strerror(errno);
  return status;
}

inline mode_t mode_of(const std::string& path) {
  return status_of(path).st_mode & 07777;
}

// While alive, the umask is this one.
class Umask {
 public:
  explicit Umask(mode_t mask) : previous_(umask(mask)) {}
  ~Umask() { umask(previous_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  const mode_t previous_;
};

constexpr uid_t kUser = 4321;
constexpr gid_t kGroup = 8765;

// Runs `body` in a child, there as an ordinary user without other groups; the status that
// `body` returns is the child's.
template <typename Body>
int status_in_child(Body body, bool as_user = false) {
  const pid_t child = fork();
  if (child == 0) {
    if (as_user && geteuid() == 0 &&
        (setgroups(0, nullptr) != 0 || setgid(kGroup) != 0 || setuid(kUser) != 0)) {
      _exit(99);
    }
    _exit(body());
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

template <typename Body>
int errno_as_user(Body body) {
  return status_in_child(body, true);
}

#define SKIP_UNLESS_ROOT(why)                                  \
  do {                                                         \
    if (geteuid() != 0) GTEST_SKIP() << "not root: " << (why); \
  } while (0)

}  // namespace test

#endif
