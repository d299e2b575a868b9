// Processes that end by SIGKILL at each call of the system, and disks that are full at each
// byte.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "crash/killed.h"
#include "crash/recorder.h"
#include "support/temporary_directory.h"

using namespace crash;
using test::read_file;
using test::TemporaryDirectory;

namespace {

const std::string kOld(3000, 'o');
const std::string kNew(20'000, 'n');

int replace(const std::string& path, const std::string& content) {
  return g_file_replace(path.c_str(), content.data(), static_cast<int64_t>(content.size()));
}

}  // namespace

TEST(Kill, ReplacedFileIsOldOrNewAtEachCall) {
  expect_survives_kills("g_file_replace", kOld, kNew,
                        [](const std::string& path) { return replace(path, kNew); });
}

TEST(Kill, FileThatALinkLeadsToIsOldOrNewAtEachCall) {
  expect_survives_kills("g_file_replace, through a link", kOld, kNew,
                        [](const std::string& path) {
                          const std::string link = path + ".link";
                          if (symlink("f", link.c_str()) != 0) return -2;
                          const int result = replace(link, kNew);
                          unlink(link.c_str());
                          return result;
                        });
}

TEST(Kill, ReadOnlyFileWithALeftOverIsOldOrNewAtEachCall) {
  expect_survives_kills("g_file_replace, after a kill", kOld, kNew,
                        [](const std::string& path) {
                          std::string left = path;
                          left.insert(left.rfind('/') + 1, ".");
                          left += ".new";
                          const int file = open(left.c_str(), O_CREAT | O_WRONLY, 0400);
                          if (file == -1 || close(file) != 0) return -2;
                          return replace(path, kNew);
                        });
}

TEST(Kill, CopyIsOldOrNewAtEachCall) {
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", kNew);
  expect_survives_kills("g_file_duplicate", kOld, kNew, [&](const std::string& path) {
    return g_file_duplicate(from.c_str(), path.c_str());
  });
}

// --- Disks that are full.

namespace {

// In a child; 77 where the system does not let it.
template <typename Body>
int status_in_child(Body body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

constexpr int kNotPermitted = 77;

bool has_only(const std::string& path, const std::string& name) {
  return access((path + "/" + name).c_str(), F_OK) == 0 &&
         access((path + "/." + name + ".new").c_str(), F_OK) == -1;
}

bool holds(const std::string& path, const std::string& content) {
  const int file = open(path.c_str(), O_RDONLY);
  std::string text(content.size() + 1, '\0');
  const ssize_t count = read(file, text.data(), text.size());
  close(file);
  return count == static_cast<ssize_t>(content.size()) && text.starts_with(content);
}

// Fills a small file system from no room to more than enough, byte by byte, and replaces a
// file at each.
int replace_on_full_disk(const std::string& path) {
  constexpr int kBytes = 64 << 10;
  constexpr int kRoom = 4 << 12;
  if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
    return kNotPermitted;
  }
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", path.c_str(), "tmpfs", 0, "size=64k") != 0) {
    return kNotPermitted;
  }
  const std::string file = path + "/f";
  const std::string content(9000, 'n');
  const std::string old(100, 'o');
  const int filler = open((path + "/filler").c_str(), O_CREAT | O_WRONLY, 0600);
  int failures = 0;
  int successes = 0;
  for (int room = 0; room <= kRoom; ++room) {
    if (posix_fallocate(filler, 0, 1) != 0 || ftruncate(filler, 0) != 0) return 1;
    unlink(file.c_str());
    if (replace(file, old) != 0) return 2;
    if (posix_fallocate(filler, 0, kBytes - 4096 - room) != 0) return 3;
    errno = 0;
    const int result = replace(file, content);
    if (result == 0) {
      ++successes;
      if (!holds(file, content)) return 4;
    } else {
      ++failures;
      if (result != -1 || errno != ENOSPC) return 5;
      if (!holds(file, old)) return 6;
    }
    if (!has_only(path, "f")) return 7;
  }
  return failures > 0 && successes > 0 ? 0 : 8;
}

}  // namespace

TEST(FullDisk, ReplacedFileIsOldOrNewAtEachByteOfRoom) {
  const TemporaryDirectory directory;
  const int status =
      status_in_child([&] { return replace_on_full_disk(directory.path()); });
  if (status == kNotPermitted) GTEST_SKIP() << "may not mount a file system";
  EXPECT_EQ(status, 0);
}

TEST(FullDisk, ReplacedFileIsOldWhenNoFileCanBeMade) {
  const TemporaryDirectory directory;
  const int status = status_in_child([&] {
    const std::string& path = directory.path();
    if ((unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", path.c_str(), "tmpfs", 0, "nr_inodes=2") != 0) {
      return kNotPermitted;
    }
    if (replace(path + "/f", "old") != 0) return 1;
    return replace(path + "/f", "new") == -1 && errno == ENOSPC && holds(path + "/f", "old")
               ? 0
               : 2;
  });
  if (status == kNotPermitted) GTEST_SKIP() << "may not mount a file system";
  EXPECT_EQ(status, 0);
}

TEST(FullDisk, LimitOnFileSizesLeavesTheOldFileAtEachByte) {
  const TemporaryDirectory directory;
  const std::string content(300, 'n');
  directory.write("f", "old");
  EXPECT_EQ(status_in_child([&] {
              signal(SIGXFSZ, SIG_IGN);
              for (rlim_t limit = 0; limit < content.size(); ++limit) {
                const rlimit limits = {limit, RLIM_INFINITY};
                if (setrlimit(RLIMIT_FSIZE, &limits) != 0) return 1;
                if (replace(directory / "f", content) != -1 || errno != EFBIG) return 2;
                if (!holds(directory / "f", "old") || !has_only(directory.path(), "f")) {
                  return 3;
                }
              }
              return 0;
            }),
            0);
}
