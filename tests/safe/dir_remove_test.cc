// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/safe.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <dirent.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "safe/dir_support.h"
#include "support/allocation_faults.h"
#include "support/descriptors.h"
#include "support/log_capture.h"
#include "support/next_function.h"

using namespace test;

namespace {

// What the library's calls of statx() fail with; 0 lets them through.
int statx_error = 0;

// Called before each removal of a name, once it is set.
std::function<void(const char*)> before_unlinkat;
int unlinkat_calls = 0;

bool hides_types = false;  // as a filesystem that does not record them in its directories

}  // namespace

// The library's calls come here: the test program's names go before the C library's.
extern "C" int statx(int directory, const char* name, int flags, unsigned mask,
                     struct statx* status) noexcept {
  static const auto real = test::next_function<decltype(statx)>("statx");
  if (is_refused("statx")) return -1;
  if (statx_error == 0) return real(directory, name, flags, mask, status);
  errno = statx_error;
  return -1;
}

extern "C" int unlinkat(int directory, const char* name, int flags) noexcept {
  static const auto real = test::next_function<decltype(unlinkat)>("unlinkat");
  ++unlinkat_calls;
  if (before_unlinkat) before_unlinkat(name);
  return is_refused("unlinkat") ? -1 : real(directory, name, flags);
}

extern "C" int fstatat(int directory, const char* name, struct stat* status,
                       int flags) noexcept {
  static const auto real = test::next_function<decltype(fstatat)>(OFFSET_TIME64("fstatat"));
  return is_refused("fstatat") ? -1 : real(directory, name, status, flags);
}

extern "C" int openat(int directory, const char* name, int flags, ...) {
  static const auto real = test::next_function<decltype(openat)>(OFFSET64("openat"));
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list args;
    va_start(args, flags);
    mode = va_arg(args, mode_t);
    va_end(args);
  }
  const bool is_up = std::strcmp(name, "..") == 0;
  return is_refused(is_up ? "openat of .." : "openat") ? -1
                                                       : real(directory, name, flags, mode);
}

extern "C" DIR* fdopendir(int descriptor) {
  static const auto real = test::next_function<DIR*(int)>("fdopendir");
  return is_refused("fdopendir") ? nullptr : real(descriptor);
}

extern "C" struct dirent* readdir(DIR* directory) {
  static const auto real = test::next_function<struct dirent*(DIR*)>(OFFSET64("readdir"));
  if (is_refused("readdir")) return nullptr;
  struct dirent* const entry = real(directory);
  if (entry != nullptr && hides_types) entry->d_type = DT_UNKNOWN;
  return entry;
}

namespace {

int remove_tree(const std::string& path) {
  errno = 0;
  return g_dir_remove(path.c_str());
}

// A tree with some of everything, and outside of it what no removal may touch.
void make_tree(const std::string& top) {
  make_dir(top);
  make_file(top + "/file", "content");
  make_file(top + "/.hidden");
  make_dir(top + "/empty");
  make_dir(top + "/sub");
  for (int i = 0; i < 20; ++i) make_file(top + "/sub/file" + std::to_string(i));
  make_dir(top + "/sub/sub");
  make_file(top + "/sub/sub/file");
  EXPECT_EQ(mkfifo((top + "/pipe").c_str(), 0600), 0);
  EXPECT_EQ(link((top + "/file").c_str(), (top + "/sub/hard").c_str()), 0);
}

void make_canaries() {
  make_dir("outside");
  make_dir("outside/sub");
  make_file("outside/canary", "alive");
  make_file("outside/sub/canary", "alive");
}

void expect_canaries() {
  EXPECT_EQ(content_of("outside/canary"), "alive");
  EXPECT_EQ(content_of("outside/sub/canary"), "alive");
}

// Makes `levels` directories of this name, each in the one before; the last holds a file.
void make_deep(const std::string& top, int levels, const std::string& name) {
  make_dir(top);
  int at = open(top.c_str(), O_RDONLY | O_DIRECTORY);
  for (int i = 0; i < levels; ++i) {
    ASSERT_EQ(mkdirat(at, name.c_str(), 0755), 0) << i;
    const int next = openat(at, name.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_NE(next, -1) << i;
    close(at);
    at = next;
  }
  close(openat(at, "file", O_CREAT | O_WRONLY, 0644));
  close(at);
}

// A tree with one deep branch, and others that come before and after it in whatever order
// they are listed.
void make_branches(const std::string& top) {
  make_dir(top);
  for (const char* const name : {"/a", "/b", "/c"}) make_tree(top + name);
  make_deep(top + "/deep", 12, "d");
  EXPECT_EQ(rename((top + "/deep/d/d/d/d/d/d/d/d/d/d/d/d/file").c_str(),
                   (top + "/deep/d/d/d/d/d/d/d/d/d/d/d/d/bottom").c_str()),
            0);
  for (const char* const name : {"/x", "/y", "/z"}) make_tree(top + name);
}

// Calls `body` when the walk has come down the deep branch, once.
void at_the_bottom(const std::function<void()>& body) {
  before_unlinkat = [body](const char* name) {
    if (std::strcmp(name, "bottom") != 0) return;
    const auto once = body;
    before_unlinkat = nullptr;
    once();
  };
}

TEST(DirRemove, ATreeIsGoneWithAllThatItHolds) {
  in_jail([](bool) {
    make_canaries();
    for (const char* const path :
         {"tree", "./tree", "tree/", "tree///", "outside/../tree"}) {
      make_tree("tree");
      EXPECT_EQ(remove_tree(path), 0) << path;
      EXPECT_FALSE(is_there("tree")) << path;
    }
    char buffer[4096];
    const std::string here = getcwd(buffer, sizeof buffer);
    make_tree("tree");
    EXPECT_EQ(remove_tree(here + "/tree"), 0);
    EXPECT_FALSE(is_there("tree"));
    expect_canaries();
  });
}

TEST(DirRemove, WhatIsNoDirectoryIsRemoved) {
  in_jail([](bool) {
    make_file("file");
    EXPECT_EQ(mkfifo("pipe", 0600), 0);
    EXPECT_EQ(remove_tree("file"), 0);
    EXPECT_EQ(remove_tree("pipe"), 0);
    EXPECT_FALSE(is_there("file"));
    EXPECT_FALSE(is_there("pipe"));
  });
}

TEST(DirRemove, ALinkIsRemovedAndNotWhatItLeadsTo) {
  in_jail([](bool) {
    make_canaries();
    for (const char* const target : {"outside", "outside/canary", "nowhere", "link"}) {
      make_symlink(target, "link");
      EXPECT_EQ(remove_tree("link"), 0) << target;
      EXPECT_FALSE(is_there("link")) << target;
    }
    expect_canaries();
  });
}

TEST(DirRemove, LinksInTheTreeAreRemovedAndNeverFollowed) {
  in_jail([](bool) {
    make_canaries();
    make_tree("tree");
    make_symlink("../outside", "tree/to_directory");
    make_symlink("../../outside/canary", "tree/sub/to_file");
    make_symlink("..", "tree/sub/up");
    make_symlink("/", "tree/sub/root");
    make_symlink("nowhere", "tree/sub/dangling");
    EXPECT_EQ(remove_tree("tree"), 0);
    EXPECT_FALSE(is_there("tree"));
    expect_canaries();
  });
}

TEST(DirRemove, LinksAmongTheLeadingComponentsAreFollowed) {
  in_jail([](bool) {
    make_dir("real");
    make_symlink("real", "link");
    make_tree("real/tree");
    EXPECT_EQ(remove_tree("link/tree"), 0);
    EXPECT_FALSE(is_there("real/tree"));
    EXPECT_TRUE(is_there("link"));
  });
}

TEST(DirRemove, WithASlashAtTheEndOnlyADirectoryIsOne) {
  in_jail([](bool) {
    make_canaries();
    make_symlink("outside", "link");
    make_file("file");
    for (const char* const path : {"link/", "link//", "file/"}) {
      EXPECT_EQ(remove_tree(path), -1) << path;
      EXPECT_EQ(errno, ENOTDIR) << path;
    }
    EXPECT_TRUE(is_there("link"));
    EXPECT_TRUE(is_there("file"));
    expect_canaries();
  });
}

TEST(DirRemove, NamesThatAreNoneAreRefusedAndNothingIsTouched) {
  in_jail([](bool) {
    make_canaries();
    EXPECT_EQ(chdir("outside/sub"), 0);
    for (const char* const path :
         {"", "/", "//", "///", ".", "..", "./", "../", "../.", "../..", "../sub/.",
          "../sub/..", "../sub/./", "../sub/..//", "/.", "/.."}) {
      EXPECT_EQ(remove_tree(path), -1) << path;
      EXPECT_EQ(errno, EINVAL) << path;
    }
    EXPECT_EQ(chdir("../.."), 0);
    expect_canaries();
  });
}

TEST(DirRemove, NamesThatBeginWithDotsAreNames) {
  in_jail([](bool) {
    for (const char* const path : {"...", ".a", "..a", "....", ". "}) {
      make_tree(path);
      EXPECT_EQ(remove_tree(path), 0) << path;
      EXPECT_FALSE(is_there(path)) << path;
    }
  });
}

TEST(DirRemove, NothingOfThatNameIsNoEntry) {
  in_jail([](bool) {
    make_file("file");
    for (const char* const path : {"missing", "missing/", "missing/too", "./missing"}) {
      EXPECT_EQ(remove_tree(path), -1) << path;
      EXPECT_EQ(errno, ENOENT) << path;
    }
    EXPECT_EQ(remove_tree("file/below"), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(remove_tree(std::string(256, 'x')), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
  });
}

TEST(DirRemove, WhereTheFilesystemGivesNoTypesATreeIsGoneAllTheSame) {
  in_jail([](bool) {
    hides_types = true;
    make_canaries();
    make_tree("tree");
    make_symlink("../outside", "tree/to_directory");
    make_symlink("..", "tree/sub/up");
    make_deep("tree/deep", 20, "d");
    EXPECT_EQ(remove_tree("tree"), 0);
    EXPECT_FALSE(is_there("tree"));
    expect_canaries();
  });
}

// --- Mounts.

class DirRemoveMount : public testing::Test {
 protected:
  // Runs `body` with a mount of `kind` at tree/sub/mount.
  static void with_mount(const char* kind, const std::function<void()>& body) {
    in_jail([&](bool has_jail) {
      if (!has_jail) {
        std::puts("not root: no mount was tried");
        return;
      }
      make_canaries();
      make_tree("tree");
      make_dir("tree/sub/mount");
      make_dir("tree/sub/mount/hidden");
      const bool is_bind = std::strcmp(kind, "bind") == 0;
      ASSERT_EQ(mount("outside", "tree/sub/mount", is_bind ? nullptr : kind,
                      is_bind ? MS_BIND : 0, nullptr),
                0)
          << std::strerror(errno);
      if (!is_bind) make_file("tree/sub/mount/canary", "alive");
      body();
      EXPECT_EQ(content_of("tree/sub/mount/canary"), "alive");
      expect_canaries();
    });
  }

  static void expect_only_the_mount_left() {
    EXPECT_EQ(remove_tree("tree"), -1);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_FALSE(is_there("tree/file"));
    EXPECT_FALSE(is_there("tree/sub/sub"));
    EXPECT_FALSE(is_there("tree/sub/file1"));
    EXPECT_TRUE(is_there("tree/sub/mount"));
  }
};

// Not so before Linux 5.8, nor under an emulator that hides it. Asks the kernel itself,
// whose record is younger than some C libraries.
bool kernel_distinguishes_mounts() {
  constexpr unsigned kMountIdentity = 0x1000;
  uint64_t record[32] = {};
  return syscall(SYS_statx, AT_FDCWD, "/", 0, kMountIdentity, record) == 0 &&
         record[144 / sizeof(uint64_t)] != 0;
}

TEST_F(DirRemoveMount, OfTheSameFilesystemInTheTreeStays) {
  if (!kernel_distinguishes_mounts()) GTEST_SKIP() << "mounts look alike here";
  with_mount("bind", expect_only_the_mount_left);
}

TEST_F(DirRemoveMount, OfAnotherFilesystemInTheTreeStays) {
  with_mount("tmpfs", expect_only_the_mount_left);
}

// A kernel that does not distinguish mounts, and a filter that does not know the call.
TEST_F(DirRemoveMount, OfAnotherFilesystemStaysWhereOnlyTheDeviceDiffers) {
  for (const int error : {ENOSYS, EPERM}) {
    statx_error = error;
    with_mount("tmpfs", expect_only_the_mount_left);
    statx_error = 0;
  }
}

TEST_F(DirRemoveMount, ItselfIsRefused) {
  for (const char* const kind : {"bind", "tmpfs"}) {
    if (kind[0] == 'b' && !kernel_distinguishes_mounts()) continue;
    with_mount(kind, [] {
      for (const char* const path : {"tree/sub/mount", "tree/sub/mount/"}) {
        EXPECT_EQ(remove_tree(path), -1);
        EXPECT_EQ(errno, EXDEV);
      }
      EXPECT_TRUE(is_there("tree/file"));
    });
  }
}

TEST_F(DirRemoveMount, IsNotInTheWayOfWhatIsOnIt) {
  with_mount("tmpfs", [] {
    make_tree("tree/sub/mount/inner");
    EXPECT_EQ(remove_tree("tree/sub/mount/inner"), 0);
    EXPECT_FALSE(is_there("tree/sub/mount/inner"));
  });
}

TEST_F(DirRemoveMount, OfAFileStays) {
  if (!kernel_distinguishes_mounts()) GTEST_SKIP() << "mounts look alike here";
  with_mount("tmpfs", [] {
    ASSERT_EQ(mount("outside/canary", "tree/file", nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(remove_tree("tree/file"), -1);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(remove_tree("tree"), -1);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(content_of("tree/file"), "alive");
    EXPECT_FALSE(is_there("tree/sub/sub"));
  });
}

// --- Failures.

TEST(DirRemove, AllButWhatCannotBeRemovedIsRemoved) {
  in_jail(
      [](bool) {
        make_canaries();
        make_tree("tree");
        make_dir("tree/closed");
        make_file("tree/closed/file");
        make_file("tree/closed/other");
        make_tree("tree/closed/deeper");
        EXPECT_EQ(chmod("tree/closed", 0555), 0);
        EXPECT_EQ(remove_tree("tree"), -1);
        EXPECT_EQ(errno, EACCES);
        EXPECT_TRUE(is_there("tree/closed/file"));
        EXPECT_TRUE(is_there("tree/closed/deeper"));
        EXPECT_FALSE(is_there("tree/closed/deeper/file"));
        EXPECT_FALSE(is_there("tree/closed/deeper/sub"));
        EXPECT_FALSE(is_there("tree/file"));
        EXPECT_FALSE(is_there("tree/sub"));
        EXPECT_EQ(chmod("tree/closed", 0755), 0);
        EXPECT_EQ(remove_tree("tree"), 0);
        expect_canaries();
      },
      As::kUser);
}

TEST(DirRemove, WhatMayNotBeReadIsRemovedIfItIsEmpty) {
  in_jail(
      [](bool) {
        make_tree("tree");
        make_dir("tree/closed", 0);
        make_dir("tree/sub/closed", 0333);
        EXPECT_EQ(remove_tree("tree"), 0);
        EXPECT_FALSE(is_there("tree"));
        make_tree("tree");
        make_dir("tree/sub/closed");
        make_file("tree/sub/closed/file");
        EXPECT_EQ(chmod("tree/sub/closed", 0333), 0);
        EXPECT_EQ(remove_tree("tree"), -1);
        EXPECT_EQ(errno, EACCES);
        EXPECT_TRUE(is_there("tree/sub/closed/file"));
        EXPECT_FALSE(is_there("tree/file"));
      },
      As::kUser);
}

TEST(DirRemove, WhatMayNotBeSearchedIsLeft) {
  in_jail(
      [](bool) {
        make_deep("tree", 12, "d");
        std::string bottom = "tree";
        for (int i = 0; i < 12; ++i) bottom += "/d";
        EXPECT_EQ(chmod(bottom.c_str(), 0444), 0);
        EXPECT_EQ(remove_tree("tree"), -1);
        EXPECT_EQ(errno, EACCES);
        EXPECT_EQ(chmod(bottom.c_str(), 0755), 0);
        EXPECT_EQ(remove_tree("tree"), 0);
      },
      As::kUser);
}

// The kernel asks for permission before it says that a name is a directory's.
TEST(DirRemove, WhatADirectoryMayNotLoseIsEmptiedWithAndWithoutTypes) {
  in_jail(
      [](bool) {
        for (const bool hidden : {false, true}) {
          const std::string top = hidden ? "hidden" : "given";
          make_dir(top);
          make_dir(top + "/sub");
          make_file(top + "/sub/file");
          make_file(top + "/file");
          make_symlink("..", top + "/link");
          EXPECT_EQ(mkfifo((top + "/pipe").c_str(), 0600), 0);
          EXPECT_EQ(chmod(top.c_str(), 0555), 0);
          hides_types = hidden;
          EXPECT_EQ(remove_tree(top), -1) << top;
          EXPECT_EQ(errno, EACCES) << top;
          EXPECT_FALSE(is_there(top + "/sub/file")) << top;
          for (const char* const name : {"/sub", "/file", "/link", "/pipe"}) {
            EXPECT_TRUE(is_there(top + name)) << top << name;
          }
          EXPECT_EQ(chmod(top.c_str(), 0755), 0);
          EXPECT_EQ(remove_tree(top), 0) << top;
        }
      },
      As::kUser);
}

TEST(DirRemove, WhatOthersOwnInAStickyDirectoryIsEmptiedWithAndWithoutTypes) {
  in_jail([](bool has_jail) {
    if (!has_jail) {
      std::puts("not root: no other owner was tried");
      return;
    }
    for (const char* const top : {"given", "hidden"}) {
      const std::string sub = std::string(top) + "/sub";
      make_dir(top);
      make_dir(sub);
      make_file(sub + "/file");
      EXPECT_EQ(chmod(top, 01777), 0);
      EXPECT_EQ(chmod(sub.c_str(), 0777), 0);
    }
    ASSERT_EQ(setuid(4321), 0);
    for (const char* const top : {"given", "hidden"}) {
      const std::string sub = std::string(top) + "/sub";
      hides_types = top[0] == 'h';
      EXPECT_EQ(remove_tree(top), -1) << top;
      EXPECT_EQ(errno, EPERM) << top;
      EXPECT_FALSE(is_there(sub + "/file")) << top;
      EXPECT_TRUE(is_there(sub)) << top;
    }
  });
}

TEST(DirRemove, AnInterruptedCallIsCalledAgain) {
  in_jail([](bool) {
    make_canaries();
    for (const char* const function : {"statx", "fstatat", "openat", "openat of ..",
                                       "fdopendir", "readdir", "unlinkat"}) {
      make_deep("tree", 12, "d");
      make_file("tree/file");
      statx_error = std::strcmp(function, "fstatat") == 0 ? ENOSYS : 0;
      refusal = {function, EINTR, 3};
      EXPECT_EQ(remove_tree("tree"), 0) << function << ": " << std::strerror(errno);
#ifdef __GLIBC__  // musl's statx() may be called by another name
      EXPECT_EQ(refusal.times, 0) << function;
#endif
      EXPECT_FALSE(is_there("tree")) << function;
      refusal.times = 0;
      remove_tree("tree");
    }
    expect_canaries();
  });
}

// Directories above what is left are entered once more at most, however deep they are.
TEST(DirRemove, WhatIsLeftDeepDownCostsNoRepeatedWalks) {
  in_jail(
      [](bool) {
        make_deep("tree", 60, "d");
        std::string path = "tree";
        for (int i = 0; i < 60; ++i) {
          path += "/d";
          make_file(path + "/a");
          make_dir(path + "/b");
          make_file(path + "/b/c");
        }
        EXPECT_EQ(chmod(path.c_str(), 0555), 0);
        unlinkat_calls = 0;
        EXPECT_EQ(remove_tree("tree"), -1);
        EXPECT_EQ(errno, EACCES);
        EXPECT_LT(unlinkat_calls, 1000);
        EXPECT_FALSE(is_there("tree/d/a"));
        EXPECT_FALSE(is_there("tree/d/b"));
        EXPECT_FALSE(is_there(path.substr(0, path.size() - 2) + "/a"));
        EXPECT_TRUE(is_there(path + "/a"));
        EXPECT_EQ(chmod(path.c_str(), 0755), 0);
        EXPECT_EQ(remove_tree("tree"), 0);
      },
      As::kUser);
}

TEST(DirRemove, ManyDirectoriesThatAreLeftAreAllLeft) {
  in_jail(
      [](bool) {
        make_deep("tree", 10, "d");
        for (int i = 0; i < 100; ++i) {
          const std::string path = "tree/d/e" + std::to_string(i);
          make_deep(path, 9, "x");
          if (i % 2 == 0) continue;
          EXPECT_EQ(chmod((path + "/x").c_str(), 0555), 0);
        }
        EXPECT_EQ(remove_tree("tree"), -1);
        EXPECT_EQ(errno, EACCES);
        EXPECT_FALSE(is_there("tree/d/d"));
        for (int i = 0; i < 100; ++i) {
          const std::string path = "tree/d/e" + std::to_string(i);
          EXPECT_EQ(is_there(path), i % 2 == 1) << path;
          if (i % 2 == 0) continue;
          EXPECT_FALSE(is_there(path + "/x/x/x"));
          EXPECT_EQ(chmod((path + "/x").c_str(), 0755), 0);
        }
        EXPECT_EQ(remove_tree("tree"), 0);
      },
      As::kUser);
}

TEST(DirRemove, AMissingPathIsReported) {
  LogCapture log;
  errno = 0;
  EXPECT_EQ(g_dir_remove(nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.take(), std::vector<std::string>{check_line("g_dir", "path != NULL")});
}

TEST(DirRemove, NothingElseIsLogged) {
  in_jail([](bool) {
    LogCapture log(G_LOG_DEBUG);
    make_tree("tree");
    EXPECT_EQ(remove_tree("tree"), 0);
    EXPECT_EQ(remove_tree("tree"), -1);
    EXPECT_EQ(remove_tree("/"), -1);
    EXPECT_EQ(log.take(), std::vector<std::string>{});
  });
}

TEST(DirRemove, SurvivesAnExhaustedHeap) {
  in_jail([](bool) {
    make_canaries();
    const int expected = lowest_free_descriptor();
    for_each_failed_allocation([&](AllocationFaults& faults) {
      faults.pause();
      if (!is_there("tree")) make_deep("tree", 40, "d");
      faults.resume();
      errno = 0;
      const int result = g_dir_remove("tree");
      const int error = errno;
      faults.disarm();
      if (faults.failures() == 0) {
        EXPECT_EQ(result, 0);
      }
      if (result != 0) {
        EXPECT_EQ(error, ENOMEM);
      }
      EXPECT_EQ(is_there("tree"), result != 0);
      EXPECT_EQ(lowest_free_descriptor(), expected);
    });
    expect_canaries();
  });
}

// --- Size.

TEST(DirRemove, DepthCostsFewDescriptors) {
  in_jail([](bool) {
    make_deep("tree", 10000, "d");
    struct rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    for (int fd = 3; fd < 1000; ++fd) close(fd);
    limit.rlim_cur = 3 + 10;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(remove_tree("tree"), 0) << std::strerror(errno);
    EXPECT_FALSE(is_there("tree"));
  });
}

TEST(DirRemove, LongNamesMayAddUpToAnyPath) {
  in_jail([](bool) {
    make_canaries();
    make_deep("tree", 300, std::string(255, 'x'));
    EXPECT_EQ(remove_tree("tree"), 0);
    EXPECT_FALSE(is_there("tree"));
    const std::string name(255, 'y');
    make_tree(name);
    EXPECT_EQ(remove_tree(name), 0);
    EXPECT_FALSE(is_there(name));
    expect_canaries();
  });
}

TEST(DirRemove, ADirectoryMayHoldMany) {
  in_jail([](bool) {
    make_dir("tree");
    for (int i = 0; i < 20000; ++i) {
      const std::string path = "tree/" + std::to_string(i);
      if (i % 4 == 0) {
        make_dir(path);
      } else {
        close(open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
      }
    }
    EXPECT_EQ(remove_tree("tree"), 0);
    EXPECT_FALSE(is_there("tree"));
  });
}

// --- Concurrent changes.

// Just before a name in the tree is removed, its directory becomes a link out of the tree.
TEST(DirRemove, ADirectoryThatIsSwappedForALinkLeadsNowhere) {
  for (int nth = 1; nth <= 30; ++nth) {
    in_jail([nth](bool) {
      make_canaries();
      make_tree("tree");
      int calls = 0;
      before_unlinkat = [&](const char*) {
        if (++calls != nth || rename("tree/sub", "tree/away") != 0) return;
        make_symlink("../outside", "tree/sub");
      };
      const int result = remove_tree("tree");
      before_unlinkat = nullptr;
      EXPECT_EQ(is_there("tree"), result != 0);
      expect_canaries();
    });
  }
}

TEST(DirRemove, AThreadThatSwapsDirectoriesForLinksLeadsNowhere) {
  in_jail([](bool) {
    make_canaries();
    std::atomic<bool> is_over{false};
    std::thread swapper([&] {
      while (!is_over) {
        for (const char* const name : {"tree/sub", "tree/sub/sub", "tree/empty", "tree"}) {
          const std::string away = std::string(name) + ".away";
          if (rename(name, away.c_str()) != 0) continue;
          (void)!symlink("/outside", name);
          unlink(name);
          rename(away.c_str(), name);
        }
      }
    });
    for (int round = 0; round < 300; ++round) {
      make_dir("here");
      mkdir("tree", 0755);
      for (const char* const name : {"tree/sub", "tree/empty", "tree/sub/sub"}) {
        mkdir(name, 0755);
      }
      for (const char* const name : {"tree/canary", "tree/sub/canary", "tree/sub/sub/a"}) {
        close(open(name, O_CREAT | O_WRONLY | O_NOFOLLOW | O_CLOEXEC, 0644));
      }
      g_dir_remove("tree");
      rmdir("here");
    }
    is_over = true;
    swapper.join();
    expect_canaries();
    g_dir_remove("tree");
    g_dir_remove("tree.away");
  });
}

// What is moved away during the walk is no longer in the tree. Nothing outside is taken for
// its parent, and what is left of the tree is removed.
TEST(DirRemove, ADirectoryThatIsMovedAwayDuringTheWalkCostsNoOther) {
  in_jail([](bool) {
    make_canaries();
    make_branches("tree");
    at_the_bottom([] { EXPECT_EQ(rename("tree/deep/d/d", "outside/moved"), 0); });
    EXPECT_EQ(remove_tree("tree"), 0) << std::strerror(errno);
    EXPECT_FALSE(is_there("tree"));
    EXPECT_TRUE(is_there("outside/moved"));
    expect_canaries();
  });
}

TEST(DirRemove, ADirectoryThatIsMovedWithinTheTreeIsRemovedThere) {
  in_jail([](bool) {
    make_branches("tree");
    at_the_bottom([] { EXPECT_EQ(rename("tree/deep/d/d", "tree/moved"), 0); });
    EXPECT_EQ(remove_tree("tree"), 0) << std::strerror(errno);
    EXPECT_FALSE(is_there("tree"));
  });
}

TEST(DirRemove, TheFirstFailureIsTheReasonAlsoAfterTheWayBackWasLost) {
  in_jail(
      [](bool) {
        make_branches("tree");
        make_dir("outside");
        at_the_bottom([] {
          EXPECT_EQ(rename("tree/deep/d/d", "outside/moved"), 0);
          make_dir("tree/closed");
          make_file("tree/closed/file");
          EXPECT_EQ(chmod("tree/closed", 0555), 0);
        });
        EXPECT_EQ(remove_tree("tree"), -1);
        EXPECT_EQ(errno, ESTALE);
        EXPECT_TRUE(is_there("tree/closed/file"));
        for (const char* const name : {"a", "b", "c", "deep", "x", "y", "z"}) {
          EXPECT_FALSE(is_there(std::string("tree/") + name)) << name;
        }
        EXPECT_EQ(chmod("tree/closed", 0755), 0);
        EXPECT_EQ(remove_tree("tree"), 0);
      },
      As::kUser);
}

TEST(DirRemove, AWayBackThatCannotBeOpenedOnceCostsNothing) {
  in_jail([](bool) {
    make_canaries();
    for (const int error : {ENOMEM, EMFILE, EIO}) {
      make_branches("tree");
      refusal = {"openat of ..", error, 1};
      EXPECT_EQ(remove_tree("tree"), 0) << std::strerror(errno);
      EXPECT_EQ(refusal.times, 0);
      EXPECT_FALSE(is_there("tree"));
    }
    expect_canaries();
  });
}

TEST(DirRemove, WhereNoWayBackCanBeOpenedTheWalkEnds) {
  in_jail([](bool) {
    make_canaries();
    make_deep("tree", 5000, "d");
    const int many = 1'000'000;
    refusal = {"openat of ..", ENOMEM, many};
    EXPECT_EQ(remove_tree("tree"), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_LE(many - refusal.times, 100);
    refusal.times = 0;
    EXPECT_EQ(remove_tree("tree"), 0);
    expect_canaries();
  });
}

// Only the tree itself is walked again, not what took its name meanwhile.
TEST(DirRemove, AnotherTreeThatTakesTheNameDuringTheWalkStays) {
  in_jail([](bool) {
    make_canaries();
    make_branches("tree");
    at_the_bottom([] {
      EXPECT_EQ(rename("tree/deep/d/d", "outside/moved"), 0);
      EXPECT_EQ(rename("tree", "outside/old"), 0);
      make_dir("tree");
      make_file("tree/new", "alive");
    });
    EXPECT_EQ(remove_tree("tree"), -1);
    EXPECT_EQ(errno, ESTALE);
    EXPECT_EQ(content_of("tree/new"), "alive");
    expect_canaries();
  });
}

TEST(DirRemove, AMountThatAppearsBeforeTheTreeIsWalkedAgainStays) {
  in_jail([](bool has_jail) {
    if (!has_jail) {
      std::puts("not root: no mount was tried");
      return;
    }
    make_canaries();
    make_branches("tree");
    at_the_bottom([] {
      EXPECT_EQ(rename("tree/deep/d/d", "outside/moved"), 0);
      make_dir("tree/mount");
      EXPECT_EQ(mount("none", "tree/mount", "tmpfs", 0, nullptr), 0);
      make_file("tree/mount/canary", "alive");
    });
    EXPECT_EQ(remove_tree("tree"), -1);
    EXPECT_EQ(errno, ESTALE);
    EXPECT_EQ(content_of("tree/mount/canary"), "alive");
    EXPECT_FALSE(is_there("tree/a"));
    EXPECT_FALSE(is_there("tree/z"));
    expect_canaries();
  });
}

TEST(DirRemove, TwoMayRemoveTheSameTree) {
  in_jail([](bool) {
    make_canaries();
    for (int round = 0; round < 100; ++round) {
      make_tree("tree");
      std::thread other([] { g_dir_remove("tree"); });
      g_dir_remove("tree");
      other.join();
      EXPECT_FALSE(is_there("tree"));
    }
    expect_canaries();
  });
}

// What others add meanwhile is removed, too, as long as they do not go on for ever.
TEST(DirRemove, FilesThatAppearDuringTheWalkAreRemoved) {
  in_jail([](bool) {
    make_tree("tree");
    int made = 0;
    before_unlinkat = [&](const char*) {
      if (++made < 20) make_file("tree/sub/sub/new" + std::to_string(made));
    };
    EXPECT_EQ(remove_tree("tree"), 0);
    before_unlinkat = nullptr;
    EXPECT_FALSE(is_there("tree"));
  });
}

TEST(DirRemove, CancellationWaitsUntilAllIsGone) {
  in_jail([](bool) {
    make_tree("tree");
    std::atomic<bool> is_cancelled{false};
    struct Shared {
      std::atomic<bool>* is_cancelled;
    } shared{&is_cancelled};
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void* data) -> void* {
                    while (!*static_cast<Shared*>(data)->is_cancelled) sched_yield();
                    g_dir_remove("tree");
                    pthread_testcancel();
                    return nullptr;
                  },
                  &shared),
              0);
    pthread_cancel(thread);
    is_cancelled = true;
    void* result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_FALSE(is_there("tree"));
  });
}

}  // namespace
