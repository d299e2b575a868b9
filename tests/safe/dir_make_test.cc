// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/safe.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "safe/dir_support.h"
#include "support/allocation_faults.h"
#include "support/log_capture.h"
#include "support/next_function.h"

using namespace test;

// The library's calls come here: the test program's names go before the C library's.
extern "C" int mkdir(const char* path, mode_t mode) noexcept {
  static const auto real = next_function<int(const char*, mode_t)>("mkdir");
  return is_refused("mkdir") ? -1 : real(path, mode);
}

extern "C" int stat(const char* path, struct stat* status) noexcept {
  static const auto real =
      next_function<int(const char*, struct stat*)>(OFFSET_TIME64("stat"));
  return is_refused("stat") ? -1 : real(path, status);
}

extern "C" int lstat(const char* path, struct stat* status) noexcept {
  static const auto real =
      next_function<int(const char*, struct stat*)>(OFFSET_TIME64("lstat"));
  return is_refused("lstat") ? -1 : real(path, status);
}

extern "C" int chmod(const char* path, mode_t mode) noexcept {
  static const auto real = next_function<int(const char*, mode_t)>("chmod");
  return is_refused("chmod") ? -1 : real(path, mode);
}

namespace {

int make(const std::string& path, unsigned mode = 0755) {
  errno = 0;
  return g_dir_make(path.c_str(), mode);
}

bool is_directory(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

TEST(DirMake, MakesTheDirectoryAndAllMissingParents) {
  in_jail([](bool) {
    EXPECT_EQ(make("a/b/c"), 0);
    EXPECT_TRUE(is_directory("a/b/c"));
    EXPECT_EQ(make("a/b/d/e"), 0);
    EXPECT_TRUE(is_directory("a/b/d/e"));
    EXPECT_EQ(make("single"), 0);
    EXPECT_TRUE(is_directory("single"));
  });
}

TEST(DirMake, SlashesAndDotsAreAsForTheSystem) {
  in_jail([](bool) {
    for (const char* const path : {"a/b/", "c//d", "e/./f", "g/../h", "i/j///", "./k/l"}) {
      EXPECT_EQ(make(path), 0) << path;
      EXPECT_TRUE(is_directory(path)) << path;
    }
    EXPECT_TRUE(is_directory("g"));
    EXPECT_TRUE(is_directory("h"));
    EXPECT_EQ(make("."), 0);
    EXPECT_EQ(make("/"), 0);
    EXPECT_EQ(make(".."), 0);
  });
}

TEST(DirMake, OneThatIsThereKeepsItsPermissions) {
  in_jail([](bool) {
    make_dir("a", 0700);
    make_dir("a/b", 0500);
    EXPECT_EQ(make("a/b", 0777), 0);
    EXPECT_EQ(permissions("a/b"), 0500u);
    EXPECT_EQ(make("a/c/d", 0777), 0);
    EXPECT_EQ(permissions("a"), 0700u);
  });
}

TEST(DirMake, ALinkToADirectoryCountsAsOne) {
  in_jail([](bool) {
    make_dir("real");
    make_symlink("real", "link");
    EXPECT_EQ(make("link"), 0);
    EXPECT_EQ(make("link/"), 0);
    EXPECT_EQ(make("link/a/b"), 0);
    EXPECT_TRUE(is_directory("real/a/b"));
  });
}

TEST(DirMake, SomethingElseInTheWayIsNoDirectory) {
  in_jail([](bool) {
    make_file("file");
    make_symlink("nowhere", "dangling");
    make_symlink("circle", "circle");
    make_symlink("file", "link");
    for (const char* const name : {"file", "dangling", "circle", "link"}) {
      for (const char* const rest : {"", "/", "/a", "/a/b", "/a/"}) {
        const std::string path = std::string(name) + rest;
        EXPECT_EQ(make(path), -1) << path;
        EXPECT_EQ(errno, ENOTDIR) << path;
      }
    }
    EXPECT_FALSE(is_there("nowhere"));
  });
}

TEST(DirMake, ParentsGetWriteAndSearchPermissionBesides) {
  in_jail(
      [](bool) {
        EXPECT_EQ(make("a/b/c", 0555), 0);
        EXPECT_EQ(permissions("a"), 0755u);
        EXPECT_EQ(permissions("a/b"), 0755u);
        EXPECT_EQ(permissions("a/b/c"), 0555u);
        EXPECT_EQ(make("d/e/", 0), 0);  // the last component, whatever follows it
        EXPECT_EQ(permissions("d"), 0300u);
        EXPECT_EQ(permissions("d/e"), 0u);
      },
      As::kUser);
}

TEST(DirMake, TheUmaskCountsButNotAgainstTheWayDown) {
  in_jail(
      [](bool) {
        umask(027);
        EXPECT_EQ(make("a/b", 0777), 0);
        EXPECT_EQ(permissions("a"), 0750u);
        EXPECT_EQ(permissions("a/b"), 0750u);
        umask(0777);
        EXPECT_EQ(make("c/d/e", 0755), 0);
        EXPECT_EQ(permissions("c"), 0300u);
        EXPECT_EQ(permissions("c/d"), 0300u);
        EXPECT_EQ(permissions("c/d/e"), 0u);
      },
      As::kUser);
}

TEST(DirMake, ParentsMadeBeforeAFailureStay) {
  in_jail([](bool) {
    const std::string too_long(256, 'x');
    EXPECT_EQ(make("a/b/" + too_long), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_TRUE(is_directory("a/b"));
    EXPECT_EQ(make("c/" + too_long + "/d"), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_TRUE(is_directory("c"));
  });
}

TEST(DirMake, TheSystemsRefusalIsTheReason) {
  in_jail(
      [](bool) {
        make_dir("closed", 0555);
        EXPECT_EQ(make("closed/a"), -1);
        EXPECT_EQ(errno, EACCES);
        EXPECT_EQ(make("closed/a/b"), -1);
        EXPECT_EQ(errno, EACCES);
        EXPECT_EQ(make(""), -1);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(make(std::string(5000, 'x')), -1);
        EXPECT_EQ(errno, ENAMETOOLONG);
      },
      As::kUser);
}

TEST(DirMake, AnInterruptedCallIsCalledAgain) {
  in_jail(
      [](bool) {
        umask(0777);  // so that permissions are restored
        for (const char* const function : {"mkdir", "stat", "lstat", "chmod"}) {
          const std::string top = std::string("for_") + function;
          make_dir(top);
          EXPECT_EQ(chmod(top.c_str(), 0755), 0);
          refusal = {function, EINTR, 1};
          EXPECT_EQ(make(top + "/a/b"), 0) << function << ": " << std::strerror(errno);
          EXPECT_EQ(refusal.times, 0) << function;
          EXPECT_TRUE(is_directory(top + "/a/b")) << function;
          EXPECT_EQ(chmod((top + "/a").c_str(), 0755), 0);
          EXPECT_EQ(chmod((top + "/a/b").c_str(), 0755), 0);
        }
      },
      As::kUser);
}

TEST(DirMake, APathMayHaveAllBytesThatTheSystemTakes) {
  in_jail([](bool) {
    std::string path;
    while (path.size() < 4095) path += path.size() % 201 == 200 ? '/' : 'x';
    EXPECT_EQ(make(path), 0);
    EXPECT_TRUE(is_directory(path));
    EXPECT_EQ(make(path + "y"), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
  });
}

TEST(DirMake, SeveralThreadsMayMakeTheSame) {
  in_jail([](bool) {
    for (int round = 0; round < 50; ++round) {
      const std::string path = "round" + std::to_string(round) + "/a/b/c/d/e/f";
      std::vector<std::thread> threads;
      std::vector<int> results(4, -7);
      for (int& result : results) {
        threads.emplace_back([&result, &path] { result = g_dir_make(path.c_str(), 0755); });
      }
      for (std::thread& thread : threads) thread.join();
      EXPECT_EQ(results, std::vector<int>(4, 0));
      EXPECT_TRUE(is_directory(path));
    }
  });
}

TEST(DirMake, AMissingPathIsReported) {
  LogCapture log;
  errno = 0;
  EXPECT_EQ(g_dir_make(nullptr, 0755), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.take(), std::vector<std::string>{check_line("g_dir", "path != NULL")});
}

TEST(DirMake, NothingElseIsLogged) {
  in_jail([](bool) {
    LogCapture log(G_LOG_DEBUG);
    make_file("file");
    EXPECT_EQ(make("file/a"), -1);
    EXPECT_EQ(make("a/b"), 0);
    EXPECT_EQ(log.take(), std::vector<std::string>{});
  });
}

TEST(DirMake, SurvivesAnExhaustedHeap) {
  in_jail([](bool) {
    int number = 0;
    for_each_failed_allocation([&](AllocationFaults& faults) {
      const std::string path = "a" + std::to_string(++number) + "/b";
      errno = 0;
      const int result = g_dir_make(path.c_str(), 0755);
      const int error = errno;
      faults.disarm();
      EXPECT_EQ(result, faults.failures() == 0 ? 0 : -1);
      if (result != 0) {
        EXPECT_EQ(error, ENOMEM);
      }
    });
  });
}

}  // namespace
