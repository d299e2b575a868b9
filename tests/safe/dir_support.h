// Where directories may be removed by a library that is broken.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SAFE_DIR_SUPPORT_H
#define GROUNDWORK_TESTS_SAFE_DIR_SUPPORT_H

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/temporary_directory.h"

namespace test {

// Makes an empty filesystem the whole world of this process: nothing else can be reached.
// False where the system does not allow it.
inline bool enter_jail(const std::string& place) {
  return unshare(CLONE_NEWNS) == 0 &&
         mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("jail", place.c_str(), "tmpfs", 0, "mode=0777") == 0 &&
         chroot(place.c_str()) == 0 && chdir("/") == 0;
}

enum class As { kRoot, kUser };

// Runs `body` in a child: in a jail, or if that is impossible as an ordinary user in a
// directory of its own, which is the current one either way. Expectations count. The
// argument of `body` says whether it has a jail, and so is root and may mount.
template <typename Body>
void in_jail(Body body, As who = As::kRoot) {
  const TemporaryDirectory place;
  ASSERT_EQ(chmod(place.path().c_str(), 0777), 0);
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    alarm(200);  // for a walk that does not end
    bool has_jail = enter_jail(place.path());
    if (!has_jail && chdir(place.path().c_str()) != 0) _exit(97);
    if (has_jail) umask(022);
    if (who == As::kUser || !has_jail) {
      if (geteuid() == 0 &&
          (setgroups(0, nullptr) != 0 || setgid(8765) != 0 || setuid(4321) != 0)) {
        _exit(98);
      }
    }
    body(has_jail);
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
}

// A function of the system that fails the next times the library calls it.
struct Refusal {
  const char* function;
  int error;
  int times;
};
inline Refusal refusal;

inline bool is_refused(const char* function) {
  if (refusal.times == 0 || std::strcmp(refusal.function, function) != 0) return false;
  --refusal.times;
  errno = refusal.error;
  return true;
}

// The C library's names of functions with 64-bit offsets, and of those with 64-bit times
// besides.
#ifdef __GLIBC__
#define OFFSET64(name) name "64"
#define OFFSET_TIME64(name) (sizeof(long) == 8 ? name "64" : "__" name "64_time64")
#else
#define OFFSET64(name) name
#define OFFSET_TIME64(name) (sizeof(long) == 8 ? name : "__" name "_time64")
#endif

inline void make_dir(const std::string& path, mode_t mode = 0755) {
  EXPECT_EQ(mkdir(path.c_str(), mode), 0) << path << ": " << std::strerror(errno);
}

inline void make_file(const std::string& path, const std::string& content = "") {
  std::ofstream(path) << content;
}

inline void make_symlink(const std::string& target, const std::string& path) {
  EXPECT_EQ(symlink(target.c_str(), path.c_str()), 0) << path;
}

inline bool is_there(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0;
}

inline mode_t permissions(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

inline std::string content_of(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace test

#endif
