// Compiled twice: as it is, and with 64-bit times (scandir_time64_test.cc). On 32-bit
// targets struct stat64 differs between the two, and each must get its own.
//
// SPDX-License-Identifier: MIT

#include <groundwork/dir.h>
#include <groundwork/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#ifndef __GLIBC__
#include <linux/stat.h>
#endif
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "support/descriptors.h"
#include "support/log_capture.h"
#include "support/temporary_directory.h"
#include "sys/trees.h"

using test::AllocationFaults;
using test::LogCapture;
using test::lowest_free_descriptor;
using test::make_directory;
using test::make_link;
using test::TemporaryDirectory;
using Lines = std::vector<std::string>;

namespace {

using Visit = std::function<int(const char*, const struct stat64*)>;

int visit_file(const char* path, const struct stat64* status, void* visit) {
  return (*static_cast<Visit*>(visit))(path, status);
}

int scan(const std::string& path, Visit visit) {
  return g_scandir(path.c_str(), visit_file, &visit);
}

// The paths that were visited, in order.
std::vector<std::string> visited(const std::string& path) {
  std::vector<std::string> paths;
  scan(path, [&](const char* file, const struct stat64*) {
    paths.emplace_back(file);
    return 0;
  });
  return paths;
}

std::vector<std::string> sorted(std::vector<std::string> paths) {
  std::sort(paths.begin(), paths.end());
  return paths;
}

// Replaces each source line number by "#".
std::string without_line_numbers(const std::string& output) {
  const std::string source = "g_dir:";
  std::string result;
  size_t from = 0;
  for (size_t at; (at = output.find(source, from)) != std::string::npos;) {
    at += source.size();
    result += output.substr(from, at - from) + "#";
    from = output.find_first_not_of("0123456789", at);
    EXPECT_NE(from, at) << output;
  }
  return result + output.substr(from);
}

// What `work` prints to standard output.
std::string printed(const std::function<void()>& work) {
  testing::internal::CaptureStdout();
  work();
  std::fflush(stdout);
  return without_line_numbers(testing::internal::GetCapturedStdout());
}

TEST(Scandir, CountsOnlyTheFilesDirectlyInTheTopDirectory) {
  TemporaryDirectory dir;
  dir.write("a", "");
  dir.write("b", "");
  make_directory(dir / "sub");
  for (const char* const name : {"sub/1", "sub/2", "sub/3"}) dir.write(name, "");
  int calls = 0;
  const auto count = [&](const char*, const struct stat64*) { return ++calls, 1; };
  EXPECT_EQ(scan(dir.path(), count), 2);
  EXPECT_EQ(calls, 5);
}

TEST(Scandir, SumsUpWhateverTheFunctionReturns) {
  TemporaryDirectory dir;
  dir.write("a", "");
  dir.write("b", "");
  dir.write("c", "");
  int next = -10;
  EXPECT_EQ(scan(dir.path(), [&](const char*, const struct stat64*) { return next += 3; }),
            -12);
  EXPECT_EQ(scan(dir.path(), [&](const char*, const struct stat64*) { return INT_MAX; }),
            INT_MAX - 2);  // the sum wraps
}

TEST(Scandir, PassesPathStatusAndData) {
  TemporaryDirectory dir;
  const std::string path = dir.write("a", "abc");
  int called = 0;
  const auto check = [](const char* file, const struct stat64* status, void* data) {
    EXPECT_EQ(status->st_size, 3);
    EXPECT_TRUE(S_ISREG(status->st_mode));
    EXPECT_EQ(std::string(file).substr(std::string(file).size() - 2), "/a");
    ++*static_cast<int*>(data);
    return 0;
  };
  EXPECT_EQ(g_scandir(dir.path().c_str(), check, &called), 0);
  EXPECT_EQ(called, 1);
}

TEST(Scandir, VisitsEverythingButDirectoriesAndTheDots) {
  TemporaryDirectory dir;
  dir.write("file", "");
  dir.write(".hidden", "");
  dir.write("...", "");
  make_directory(dir / "empty");
  make_directory(dir / "sub");
  dir.write("sub/deep", "");
  make_link("file", dir / "link");
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(sorted(visited(dir.path())),
            sorted({dir / "file", dir / ".hidden", dir / "...", dir / "sub/deep",
                    dir / "link", dir / "fifo"}));
}

// Names and order as readdir() gives them; each directory is walked where it is found.
void expect_order(const std::string& path, std::vector<std::string>& expected) {
  DIR* const directory = opendir(path.c_str());
  ASSERT_NE(directory, nullptr);
  while (const struct dirent64* const entry = readdir64(directory)) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (entry->d_type == DT_DIR) {
      expect_order(path + "/" + name, expected);
    } else {
      expected.push_back(path + "/" + name);
    }
  }
  closedir(directory);
}

TEST(Scandir, WalksInTheOrderOfTheDirectories) {
  TemporaryDirectory dir;
  for (int i = 0; i < 12; ++i) {
    const std::string number = std::to_string(i * 7919 % 100);
    dir.write("f" + number, "");
    make_directory(dir / ("d" + number));
    for (int j = 0; j < 5; ++j) dir.write("d" + number + "/" + std::to_string(j * 31), "");
  }
  std::vector<std::string> expected;
  expect_order(dir.path(), expected);
  EXPECT_EQ(visited(dir.path()), expected);
}

TEST(Scandir, ASlashAtTheEndIsNotDoubledForFilesOfTheTop) {
  TemporaryDirectory dir;
  dir.write("file", "");
  make_directory(dir / "sub");
  dir.write("sub/deep", "");
  EXPECT_EQ(sorted(visited(dir.path() + "/")), sorted({dir / "file", dir / "/sub/deep"}));
}

TEST(Scandir, AnEmptyDirectoryIsZero) {
  TemporaryDirectory dir;
  EXPECT_EQ(scan(dir.path(), [](const char*, const struct stat64*) { return 1; }), 0);
}

TEST(Scandir, WhatCannotBeOpenedIsPrintedWhateverTheThreshold) {
  TemporaryDirectory dir;
  const std::string file = dir.write("file", "");
  LogCapture log(G_LOG_SILENT);
  for (const std::string& path : {dir / "missing", file, std::string()}) {
    EXPECT_EQ(printed([&] { EXPECT_EQ(visited(path), std::vector<std::string>{}); }),
              "g_dir:# opendir('" + path + "') fail\n");
  }
  EXPECT_EQ(log.take(), Lines{});
}

TEST(Scandir, DanglingLinksAndLoopsArePrintedAndSkipped) {
  TemporaryDirectory dir;
  make_link("nothing", dir / "dangling");
  make_directory(dir / "sub");
  make_link("loop", dir / "sub/loop");
  dir.write("file", "");
  LogCapture log;
  std::vector<std::string> paths;
  const std::string output = printed([&] { paths = visited(dir.path()); });
  EXPECT_EQ(paths, std::vector<std::string>{dir / "file"});
  EXPECT_NE(output.find("g_dir:# stat('" + (dir / "dangling") + "') fail\n"),
            std::string::npos);
  EXPECT_NE(output.find("g_dir:# stat('" + (dir / "sub/loop") + "') fail\n"),
            std::string::npos);
  EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 2);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(Scandir, LinksToDirectoriesAreWalked) {
  TemporaryDirectory dir;
  make_directory(dir / "elsewhere");
  dir.write("elsewhere/file", "");
  make_directory(dir / "tree");
  make_link("../elsewhere", dir / "tree/link");
  EXPECT_EQ(visited(dir / "tree"), std::vector<std::string>{dir / "tree/link/file"});
}

TEST(Scandir, ALinkToADirectoryAboveEndsWhereTheSystemStops) {
  TemporaryDirectory dir;
  dir.write("file", "");
  make_link(".", dir / "again");
  std::vector<std::string> paths;
  const std::string output = printed([&] { paths = visited(dir.path()); });
  EXPECT_GT(paths.size(), 1u);
  EXPECT_LT(paths.size(), 100u);
  EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 1);
}

TEST(Scandir, TheFunctionMayRemoveFilesThatAreStillToCome) {
  TemporaryDirectory dir;
  std::vector<std::string> files;
  for (int i = 0; i < 10; ++i) files.push_back(dir.write("f" + std::to_string(i), ""));
  int calls = 0;
  const std::string output = printed([&] {
    scan(dir.path(), [&](const char* path, const struct stat64*) {
      ++calls;
      for (const std::string& file : files) {
        if (file != path) unlink(file.c_str());
      }
      return 0;
    });
  });
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 9);
  EXPECT_EQ(output.find("g_dir:# stat('" + dir.path() + "/f"), 0u);
}

TEST(Scandir, FilesThatTheFunctionCreatesDoNotProlongTheWalk) {
  TemporaryDirectory dir;
  dir.write("0", "");
  int calls = 0;
  scan(dir.path(), [&](const char*, const struct stat64*) {
    if (++calls < 1000) dir.write(std::to_string(calls), "");
    return 0;
  });
  EXPECT_EQ(calls, 1);
}

TEST(Scandir, TheFunctionMayScanAgain) {
  TemporaryDirectory dir;
  dir.write("a", "");
  dir.write("b", "");
  int calls = 0;
  const auto inner = [&](const char*, const struct stat64*) { return ++calls, 1; };
  EXPECT_EQ(scan(dir.path(), [&](const char*,
                                 const struct stat64*) { return scan(dir.path(), inner); }),
            4);
  EXPECT_EQ(calls, 4);
}

TEST(Scandir, UnreadableDirectoriesArePrintedAndSkipped) {
  TemporaryDirectory dir;
  ASSERT_EQ(chmod(dir.path().c_str(), 0777), 0);
  const pid_t child = fork();
  if (child == 0) {
    if (getuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(99);
    make_directory(dir / "tree");
    make_directory(dir / "tree/closed");
    dir.write("tree/closed/file", "");
    chmod((dir / "tree/closed").c_str(), 0);
    const std::string output =
        printed([&] { EXPECT_EQ(visited(dir / "tree"), std::vector<std::string>{}); });
    chmod((dir / "tree/closed").c_str(), 0700);
    const bool right = output == "g_dir:# opendir('" + (dir / "tree/closed") + "') fail\n";
    _exit(right && !testing::Test::HasFailure() ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(Scandir, DepthCostsNoDescriptors) {
  TemporaryDirectory dir;
  make_directory(dir / "tree");
  test::make_deep_tree(dir / "tree", 2000, "d", "file");
  struct rlimit previous;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &previous), 0);
  struct rlimit few = previous;
  few.rlim_cur = 256;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  const std::vector<std::string> paths = visited(dir / "tree");
  setrlimit(RLIMIT_NOFILE, &previous);
  std::string expected = dir / "tree";
  for (int i = 0; i < 2000; ++i) expected += "/d";
  EXPECT_EQ(paths, std::vector<std::string>{expected + "/file"});
  EXPECT_EQ(g_rmdir((dir / "tree").c_str()), 0);
}

// Makes a chain of directories below `tree`, until the path of the last has so many bytes.
std::string make_chain(const std::string& tree, size_t size) {
  std::string bottom = tree;
  int at = open(tree.c_str(), O_RDONLY | O_DIRECTORY);
  while (bottom.size() < size) {
    size_t length = std::min<size_t>(size - bottom.size() - 1, 200);
    if (size - bottom.size() - 1 - length == 1) --length;  // the next would be "/" alone
    const std::string name(length, 'd');
    EXPECT_EQ(mkdirat(at, name.c_str(), 0755), 0);
    const int next = openat(at, name.c_str(), O_RDONLY | O_DIRECTORY);
    EXPECT_NE(next, -1);
    close(at);
    at = next;
    bottom += "/" + name;
  }
  close(at);
  EXPECT_EQ(bottom.size(), size);
  return bottom;
}

void make_files(const std::string& directory, const std::vector<std::string>& names) {
  const int at = open(directory.c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_NE(at, -1);
  for (const std::string& name : names) {
    close(openat(at, name.c_str(), O_CREAT | O_WRONLY, 0644));
  }
  close(at);
}

// Cut to nothing, a name leads to its directory, which is not walked once more.
TEST(Scandir, AtTheEndOfThePathsRoomNothingIsVisitedThatDoesNotFit) {
  for (const size_t size : {4093u, 4094u, 4095u}) {
    const bool fits = size == 4093;
    TemporaryDirectory dir;
    make_directory(dir / "tree");
    const std::string bottom = make_chain(dir / "tree", size);
    make_files(bottom, {"a"});
    std::vector<std::string> paths;
    const std::string output = printed([&] { paths = visited(dir / "tree"); });
    if (fits) {
      EXPECT_EQ(paths, std::vector<std::string>{bottom + "/a"});
      EXPECT_EQ(output, "");
    } else {
      EXPECT_EQ(paths, std::vector<std::string>{});
      EXPECT_EQ(output, "g_dir:# opendir('" + bottom + "/a') fail\n");
    }
    LogCapture log;
    EXPECT_EQ(g_rmdir((dir / "tree").c_str()), fits ? 0 : -1);
    EXPECT_EQ(log.take().size(), fits ? 0u : 1u);
    if (!fits) test::remove_deep_tree(dir / "tree");
  }
}

// At the bottom of a chain whose path leaves room for names of 5 bytes, "abcdefgh" cut is
// "abcde".
TEST(Scandir, ANameThatDoesNotFitIsCutAndVisitsTheFileOfTheCutName) {
  TemporaryDirectory dir;
  const std::string tree = dir / "tree";
  make_directory(tree);
  const std::string bottom = make_chain(tree, 4095 - 6);  // "/abcde" follows
  make_files(bottom, {"abcde", "abcdefgh"});
  std::vector<std::string> paths;
  int calls = 0;
  const std::string output = printed([&] {
    scan(tree, [&](const char* path, const struct stat64*) {
      paths.emplace_back(path);
      return ++calls;
    });
  });
  EXPECT_EQ(paths, std::vector<std::string>(2, bottom + "/abcde"));
  EXPECT_EQ(output, "");
  test::remove_deep_tree(tree);
}

TEST(Scandir, ANameThatDoesNotFitIsPrintedCutWhereNothingHasThatName) {
  TemporaryDirectory dir;
  const std::string tree = dir / "tree";
  make_directory(tree);
  const std::string bottom = make_chain(tree, 4095 - 6);
  make_files(bottom, {"abcdefgh"});
  std::vector<std::string> paths;
  EXPECT_EQ(printed([&] { paths = visited(tree); }),
            "g_dir:# stat('" + bottom + "/abcde') fail\n");
  EXPECT_EQ(paths, std::vector<std::string>{});
  test::remove_deep_tree(tree);
}

// Kept: the cut name decides the type, the whole name is opened.
TEST(Scandir, ACutNameThatLeadsToADirectoryIsPrintedWholeAndNotWalked) {
  TemporaryDirectory dir;
  const std::string tree = dir / "tree";
  make_directory(tree);
  const std::string bottom = make_chain(tree, 4095 - 6);
  make_directory(bottom + "/abcde");
  make_files(bottom, {"abcdefgh"});
  std::vector<std::string> paths;
  EXPECT_EQ(printed([&] { paths = visited(tree); }),
            "g_dir:# opendir('" + bottom + "/abcdefgh') fail\n");
  EXPECT_EQ(paths, std::vector<std::string>{});
  test::remove_deep_tree(tree);
}

TEST(Rmdir, ANameThatDoesNotFitIsReportedAndNeverTakenForAnotherFile) {
  TemporaryDirectory dir;
  const std::string tree = dir / "tree";
  make_directory(tree);
  const std::string bottom = make_chain(tree, 4095 - 6);  // "/abcde" follows
  make_files(bottom, {"abcde", "abcdefgh"});
  LogCapture log;
  EXPECT_EQ(g_rmdir(tree.c_str()), -1);
  EXPECT_EQ(log.take().size(), 1u);
  DIR* const left = opendir(bottom.c_str());
  ASSERT_NE(left, nullptr);
  std::vector<std::string> names;
  while (const struct dirent64* const entry = readdir64(left)) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  closedir(left);
  EXPECT_EQ(names, std::vector<std::string>{"abcdefgh"});
  test::remove_deep_tree(tree);
}

TEST(Scandir, AnOverlongPathIsPrintedWhole) {
  TemporaryDirectory dir;
  dir.write("file", "");
  std::string path = dir.path();
  while (path.size() < 6000) path += "/.";
  EXPECT_EQ(printed([&] { EXPECT_EQ(visited(path), std::vector<std::string>{}); }),
            "g_dir:# opendir('" + path + "') fail\n");
}

TEST(Scandir, SurvivesAnExhaustedHeap) {
  TemporaryDirectory dir;
  make_directory(dir / "sub");
  for (int i = 0; i < 300; ++i) dir.write("sub/" + std::to_string(i), "");
  dir.write("file", "");
  const LogCapture quiet(G_LOG_SILENT);
  const auto count = [](const char*, const struct stat64*, void* calls) {
    return ++*static_cast<int*>(calls), 1;
  };
  const std::string output = printed([&] {
    const int expected = lowest_free_descriptor();  // capturing takes one, too
    test::for_each_failed_allocation([&](AllocationFaults& faults) {
      int calls = 0;
      const int sum = g_scandir(dir.path().c_str(), count, &calls);
      faults.disarm();
      if (faults.failures() == 0) {
        EXPECT_EQ(sum, 1);
        EXPECT_EQ(calls, 301);
      }
      EXPECT_EQ(lowest_free_descriptor(), expected);
    });
  });
  EXPECT_FALSE(HasFailure()) << output;
}

TEST(Scandir, TheFunctionMayEndItsThreadAndNothingIsLost) {
  TemporaryDirectory dir;
  make_directory(dir / "sub");
  dir.write("sub/file", "");
  const int expected = lowest_free_descriptor();
  static AllocationFaults* faults;
  std::string path = dir.path();
  const auto walk = [](void* top) -> void* {
    const auto leave = [](const char*, const struct stat64*, void*) -> int {
      pthread_exit(nullptr);
    };
    faults = new AllocationFaults(0);
    g_scandir(static_cast<const char*>(top), leave, nullptr);
    return top;
  };
  for (const bool is_warm : {false, true}) {  // the first exit loads the unwinder
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, walk, path.data()), 0);
    void* result = path.data();
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, nullptr);
    if (is_warm) {
      EXPECT_EQ(faults->outstanding(), 0);
    }
    delete faults;
  }
  EXPECT_EQ(lowest_free_descriptor(), expected);
}

// Every field is what this program's own stat64() says of the file.
void expect_same(const char* path, const struct stat64& status) {
  struct stat64 own;
  ASSERT_EQ(stat64(path, &own), 0) << path;
  EXPECT_EQ(status.st_dev, own.st_dev) << path;
  EXPECT_EQ(status.st_ino, own.st_ino) << path;
  EXPECT_EQ(status.st_mode, own.st_mode) << path;
  EXPECT_EQ(status.st_nlink, own.st_nlink) << path;
  EXPECT_EQ(status.st_uid, own.st_uid) << path;
  EXPECT_EQ(status.st_gid, own.st_gid) << path;
  EXPECT_EQ(status.st_rdev, own.st_rdev) << path;
  EXPECT_EQ(status.st_size, own.st_size) << path;
  EXPECT_EQ(status.st_blksize, own.st_blksize) << path;
  EXPECT_EQ(status.st_blocks, own.st_blocks) << path;
  EXPECT_EQ(status.st_atim.tv_sec, own.st_atim.tv_sec) << path;
  EXPECT_EQ(status.st_atim.tv_nsec, own.st_atim.tv_nsec) << path;
  EXPECT_EQ(status.st_mtim.tv_sec, own.st_mtim.tv_sec) << path;
  EXPECT_EQ(status.st_mtim.tv_nsec, own.st_mtim.tv_nsec) << path;
  EXPECT_EQ(status.st_ctim.tv_sec, own.st_ctim.tv_sec) << path;
  EXPECT_EQ(status.st_ctim.tv_nsec, own.st_ctim.tv_nsec) << path;
}

TEST(ScandirStatus, EveryFieldIsThatOfTheProgramsOwnStat) {
  TemporaryDirectory dir;
  dir.write("file", std::string(5000, 'x'));
  ASSERT_EQ(link((dir / "file").c_str(), (dir / "second").c_str()), 0);
  const std::string big = dir.write("big", "");
  ASSERT_EQ(truncate64(big.c_str(), off64_t{5} << 30), 0);
  if (getuid() == 0) {
    ASSERT_EQ(chown(big.c_str(), 70001, 70002), 0);
  }
  ASSERT_EQ(chmod(big.c_str(), 04711), 0);
  const struct timespec times[2] = {{1234567890, 987654321}, {-5, 1}};
  ASSERT_EQ(utimensat(AT_FDCWD, big.c_str(), times, 0), 0);
  make_link("/dev/null", dir / "device");
  int calls = 0;
  scan(dir.path(), [&](const char* path, const struct stat64* status) {
    expect_same(path, *status);
    return ++calls, 0;
  });
  EXPECT_EQ(calls, 4);
}

// Sets access and modification times whatever the width of this program's time_t.
bool set_times(const std::string& path, int64_t accessed, int64_t modified) {
#if defined(SYS_utimensat_time64)
  const struct {
    int64_t seconds;
    int64_t nanoseconds;
  } times[2] = {{accessed, 5}, {modified, 6}};
  return syscall(SYS_utimensat_time64, AT_FDCWD, path.c_str(), times, 0) == 0;
#else
  const struct timespec times[2] = {{accessed, 5}, {modified, 6}};
  return utimensat(AT_FDCWD, path.c_str(), times, 0) == 0;
#endif
}

TEST(ScandirStatus, TimesBeyondWhatTheProgramCanHoldAreTheNearestThatItCan) {
  TemporaryDirectory dir;
  const std::string path = dir.write("file", "");
  constexpr int64_t kYear2100 = 4102444800;
  constexpr int64_t kYear2040 = 2208988800;
  ASSERT_TRUE(set_times(path, kYear2040, kYear2100));
  struct statx stored;
  ASSERT_EQ(syscall(SYS_statx, AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS, &stored), 0);
  if (stored.stx_mtime.tv_sec != kYear2100)
    GTEST_SKIP() << "the filesystem ends before 2100";
  constexpr bool kWide = sizeof(time_t) == 8;
  int calls = 0;
  scan(dir.path(), [&](const char*, const struct stat64* status) {
    EXPECT_EQ(int64_t{status->st_atim.tv_sec}, kWide ? kYear2040 : INT32_MAX);
    EXPECT_EQ(int64_t{status->st_mtim.tv_sec}, kWide ? kYear2100 : INT32_MAX);
    EXPECT_EQ(status->st_mtim.tv_nsec, 6);
    return ++calls, 0;
  });
  EXPECT_EQ(calls, 1);
}

TEST(ScandirStatus, TheProgramIsLinkedToTheWalkOfItsOwnLayout) {
  const auto function = reinterpret_cast<void*>(&g_scandir);
  void* const narrow = dlsym(RTLD_DEFAULT, "g_scandir");
  void* const wide = dlsym(RTLD_DEFAULT, "g_scandir_time64");
  ASSERT_NE(narrow, nullptr);
  ASSERT_NE(wide, nullptr);
  EXPECT_EQ(function, sizeof(time_t) == 8 ? wide : narrow);
#ifdef __GLIBC__
  EXPECT_EQ(narrow == wide, sizeof(long) == 8);
#else
  EXPECT_EQ(narrow, wide);  // there is only one layout
#endif
#if defined(GROUNDWORK_TEST_TIME64)
  EXPECT_EQ(sizeof(time_t), 8u);
#endif
}

}  // namespace
