// SPDX-License-Identifier: MIT

#include <groundwork/dir.h>
#include <groundwork/file.h>
#include <groundwork/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "support/descriptors.h"
#include "support/log_capture.h"
#include "support/next_function.h"
#include "support/temporary_directory.h"
#include "sys/trees.h"

using test::AllocationFaults;
using test::check_line;
using test::LogCapture;
using test::lowest_free_descriptor;
using test::make_directory;
using test::make_link;
using test::TemporaryDirectory;
using test::warning_line;
using Lines = std::vector<std::string>;

namespace {

// As the C library has it: they differ.
std::string error_text(int error) {
  return std::strerror(error);
}

// What a filesystem that gives neither types nor "." and ".." would list.
std::vector<std::string> invented_entries;
bool invent_entries = false;

// The paths that mkdir() was called with, while watched.
std::vector<std::string> made;
bool watch_mkdir = false;

// How the library had the last list sorted.
int (*last_order)(const struct dirent64**, const struct dirent64**) = nullptr;

}  // namespace

// The library's call comes here: the test program's names go before the C library's.
extern "C" int scandir64(const char* path, struct dirent64*** entries,
                         int (*selector)(const struct dirent64*),
                         int (*order)(const struct dirent64**, const struct dirent64**)) {
  static const auto real = test::next_function<decltype(scandir64)>("scandir64");
  last_order = order;
  if (!invent_entries) return real(path, entries, selector, order);
  const size_t count = invented_entries.size();
  *entries = static_cast<struct dirent64**>(std::calloc(count, sizeof(void*)));
  for (size_t i = 0; i < count; ++i) {
    auto* const entry =
        static_cast<struct dirent64*>(std::calloc(1, sizeof(struct dirent64)));
    entry->d_type = DT_UNKNOWN;
    std::strcpy(entry->d_name, invented_entries[i].c_str());
    (*entries)[i] = entry;
  }
  return static_cast<int>(count);
}

extern "C" int mkdir(const char* path, mode_t mode) noexcept {
  static const auto real = test::next_function<decltype(mkdir)>("mkdir");
  if (watch_mkdir) made.emplace_back(path);
  return real(path, mode);
}

namespace {

bool exists(const std::string& path) {
  struct stat64 status;
  return lstat64(path.c_str(), &status) == 0;
}

// The result of g_dir_list() as a vector; fails the test if it is null.
std::vector<std::string> list(const std::string& path, int filter) {
  int count = -1;
  char** const names = g_dir_list(path.c_str(), filter, &count);
  if (names == nullptr) {
    ADD_FAILURE() << "no list of " << path;
    return {};
  }
  std::vector<std::string> result;
  for (char** name = names; *name != nullptr; ++name) result.emplace_back(*name);
  EXPECT_EQ(result.size(), static_cast<size_t>(count));
  g_dir_list_free(names);
  return result;
}

// Runs `work` in a child without the privileges of root; returns what `work` returned.
template <typename Work>
int unprivileged(Work work) {
  const pid_t child = fork();
  if (child == 0) {
    if (getuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(99);
    _exit(work());
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << status;
  return WEXITSTATUS(status);
}

TEST(DirExist, NullReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_dir_exist(nullptr), 0);
  EXPECT_EQ(log.take(), Lines{check_line("g_dir", "path != NULL")});
}

TEST(DirExist, OnlyDirectoriesAndLinksToThemDo) {
  TemporaryDirectory dir;
  const std::string file = dir.write("f", "");
  make_link(".", dir / "link");
  make_link("nothing", dir / "dangling");
  LogCapture log;
  EXPECT_EQ(g_dir_exist(dir.path().c_str()), 1);
  EXPECT_EQ(g_dir_exist((dir / "link").c_str()), 1);
  EXPECT_EQ(g_dir_exist(file.c_str()), 0);
  EXPECT_EQ(g_dir_exist((dir / "dangling").c_str()), 0);
  EXPECT_EQ(g_dir_exist((dir / "missing").c_str()), 0);
  EXPECT_EQ(g_dir_exist(""), 0);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(DirList, NullReportsTheCheck) {
  LogCapture log;
  int count = 7;
  EXPECT_EQ(g_dir_list(nullptr, 0, &count), nullptr);
  EXPECT_EQ(count, 7);
  EXPECT_EQ(log.take(), Lines{check_line("g_dir", "path != NULL")});
}

TEST(DirList, WhatCannotBeReadIsNullWithoutAMessageAndWithoutACount) {
  TemporaryDirectory dir;
  const std::string file = dir.write("f", "");
  LogCapture log;
  int count = 7;
  EXPECT_EQ(g_dir_list((dir / "missing").c_str(), 0, &count), nullptr);
  EXPECT_EQ(g_dir_list(file.c_str(), 0, &count), nullptr);
  EXPECT_EQ(count, 7);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(DirList, AnEmptyDirectoryIsAnArrayOfTheTerminator) {
  TemporaryDirectory dir;
  for (const int filter : {0, 1, 2, -1}) {
    int count = 7;
    char** const names = g_dir_list(dir.path().c_str(), filter, &count);
    ASSERT_NE(names, nullptr);
    EXPECT_EQ(names[0], nullptr);
    EXPECT_EQ(count, 0);
    g_dir_list_free(names);
  }
}

TEST(DirList, FiltersDirectoriesByTheTypeOfTheEntry) {
  TemporaryDirectory dir;
  dir.write("a", "");
  make_directory(dir / "b");
  make_directory(dir / "c");
  make_link("b", dir / "link");
  EXPECT_EQ(list(dir.path(), 1), (std::vector<std::string>{"b", "c"}));
  EXPECT_EQ(list(dir.path(), 2), (std::vector<std::string>{"a", "link"}));
  for (const int filter : {0, 3, -1, INT_MIN, INT_MAX}) {
    EXPECT_EQ(list(dir.path(), filter), (std::vector<std::string>{"a", "b", "c", "link"}));
  }
}

TEST(DirList, CountMayBeNull) {
  TemporaryDirectory dir;
  dir.write("a", "");
  char** const names = g_dir_list(dir.path().c_str(), 0, nullptr);
  ASSERT_NE(names, nullptr);
  EXPECT_STREQ(names[0], "a");
  EXPECT_EQ(names[1], nullptr);
  g_dir_list_free(names);
}

TEST(DirList, IsSortedAndKeepsNamesThatBeginWithADot) {
  TemporaryDirectory dir;
  for (const char* const name : {"z", "B", "a", ".x", "...", "..y", "10", "9"}) {
    dir.write(name, "");
  }
  EXPECT_EQ(list(dir.path(), 0),
            (std::vector<std::string>{"...", "..y", ".x", "10", "9", "B", "a", "z"}));
}

TEST(DirList, IsSortedAsTheLocaleSays) {
  TemporaryDirectory dir;
  last_order = nullptr;
  list(dir.path(), 0);
  EXPECT_EQ(last_order, alphasort64);
}

TEST(DirList, AllocatesOnePointerForEachEntryTheDotsIncluded) {
  TemporaryDirectory dir;
  for (int i = 0; i < 1000; ++i) dir.write(std::to_string(i), "");
  AllocationFaults faults(0);
  char** const names = g_dir_list(dir.path().c_str(), 0, nullptr);
  faults.disarm();
  EXPECT_EQ(faults.outstanding(), 1001);
  g_dir_list_free(names);
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST(DirList, WithoutTypesThereAreNoDirectories) {
  TemporaryDirectory dir;
  invented_entries = {"a", "b"};
  invent_entries = true;
  EXPECT_EQ(list(dir.path(), 1), std::vector<std::string>{});
  EXPECT_EQ(list(dir.path(), 2), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(list(dir.path(), 0), (std::vector<std::string>{"a", "b"}));
  invent_entries = false;
}

// The list is asked for with a first allocation for the entries and one for each.
size_t array_size(std::vector<std::string> entries) {
  TemporaryDirectory dir;
  invented_entries = std::move(entries);
  invent_entries = true;
  AllocationFaults faults(0);
  char** const names = g_dir_list(dir.path().c_str(), 0, nullptr);
  faults.disarm();
  invent_entries = false;
  g_dir_list_free(names);
  return test::allocation_size(static_cast<int>(invented_entries.size()) + 2);
}

TEST(DirList, TheArrayHasRoomForEveryEntryAndAlwaysForTheTerminator) {
  EXPECT_EQ(array_size({".", "..", "a", "b"}), 4 * sizeof(char*));
  EXPECT_EQ(array_size({".", "a", "b"}), 3 * sizeof(char*));
  EXPECT_EQ(array_size({"a", "b"}), 3 * sizeof(char*));
}

TEST(DirList, NoEntriesAtAllAreNull) {
  TemporaryDirectory dir;
  invented_entries.clear();
  invent_entries = true;
  int count = 7;
  EXPECT_EQ(g_dir_list(dir.path().c_str(), 0, &count), nullptr);
  invent_entries = false;
  EXPECT_EQ(count, 7);
}

TEST(DirList, SurvivesAnExhaustedHeap) {
  TemporaryDirectory dir;
  for (int i = 0; i < 20; ++i) dir.write(std::to_string(i), "");
  const int expected = lowest_free_descriptor();
  const LogCapture quiet(G_LOG_SILENT);
  test::for_each_failed_allocation([&](AllocationFaults& faults) {
    int count = 7;
    char** const names = g_dir_list(dir.path().c_str(), 0, &count);
    faults.disarm();
    EXPECT_EQ(names == nullptr, faults.failures() != 0);
    EXPECT_EQ(count, names != nullptr ? 20 : 7);
    if (names != nullptr) g_dir_list_free(names);
    EXPECT_EQ(lowest_free_descriptor(), expected);
  });
}

TEST(DirListFree, NullReportsTheCheck) {
  LogCapture log;
  g_dir_list_free(nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_dir", "dir_list != NULL")});
}

TEST(Mkdir, NullReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_mkdir(nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_dir", "path != NULL")});
}

TEST(Mkdir, CreatesADirectoryForItsOwnerToWriteAndOthersToRead) {
  TemporaryDirectory dir;
  std::string path = dir / "new";
  const mode_t previous = umask(0);
  EXPECT_EQ(g_mkdir(path.data()), 0);
  umask(previous);
  struct stat64 status;
  ASSERT_EQ(stat64(path.c_str(), &status), 0);
  EXPECT_TRUE(S_ISDIR(status.st_mode));
  EXPECT_EQ(status.st_mode & 07777u, 0755u);
}

TEST(Mkdir, CreatesMissingParentsButNotTheLastComponent) {
  TemporaryDirectory dir;
  std::string path = dir / "a/b/c";
  const std::string before = path;
  LogCapture log;
  const mode_t previous = umask(0);
  EXPECT_EQ(g_mkdir(path.data()), 0);
  umask(previous);
  EXPECT_EQ(path, before);
  struct stat64 status;
  ASSERT_EQ(stat64((dir / "a/b").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0755u);
  EXPECT_FALSE(exists(dir / "a/b/c"));
  EXPECT_EQ(g_mkdir(path.data()), 0);  // the second call does
  EXPECT_TRUE(exists(dir / "a/b/c"));
  EXPECT_EQ(log.take(), Lines{});
}

TEST(Mkdir, ASlashAtTheEndCreatesTheLastComponentToo) {
  TemporaryDirectory dir;
  std::string path = dir / "a/b/c/";
  const std::string before = path;
  EXPECT_EQ(g_mkdir(path.data()), 0);
  EXPECT_EQ(path, before);
  EXPECT_TRUE(exists(dir / "a/b/c"));
}

TEST(Mkdir, WorksOnRelativePathsAndDoubledSlashes) {
  TemporaryDirectory dir;
  char previous[PATH_MAX];
  ASSERT_NE(getcwd(previous, sizeof previous), nullptr);
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  char relative[] = "p//q///r/";
  const int result = g_mkdir(relative);
  ASSERT_EQ(chdir(previous), 0);
  EXPECT_EQ(result, 0);
  EXPECT_STREQ(relative, "p//q///r/");
  EXPECT_TRUE(exists(dir / "p/q/r"));
}

TEST(Mkdir, WhatExistsIsSuccess) {
  TemporaryDirectory dir;
  LogCapture log;
  std::string path = dir.path();
  EXPECT_EQ(g_mkdir(path.data()), 0);
  std::string file = dir.write("f", "");
  EXPECT_EQ(g_mkdir(file.data()), 0);
  char root[] = "/";
  EXPECT_EQ(g_mkdir(root), 0);
  char empty[] = "";
  EXPECT_EQ(g_mkdir(empty), 0);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(Mkdir, TriesTheWholePathFirstAndThenEachParentWhateverTheErrorWas) {
  TemporaryDirectory dir;
  char previous[PATH_MAX];
  ASSERT_NE(getcwd(previous, sizeof previous), nullptr);
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  char relative[] = "a/b/c";
  const Lines whole{"a/b/c"};
  const Lines whole_and_parents{"a/b/c", "a", "a/b"};
  // Nothing is there, then only the parents are, then everything is.
  for (const Lines& expected : {whole_and_parents, whole, whole_and_parents}) {
    made.clear();
    watch_mkdir = true;
    EXPECT_EQ(g_mkdir(relative), 0);
    watch_mkdir = false;
    EXPECT_EQ(made, expected);
  }
  ASSERT_EQ(chdir(previous), 0);
}

TEST(Mkdir, AParentThatCannotBeCreatedIsReportedAndThePathRestored) {
  TemporaryDirectory dir;
  dir.write("f", "");
  std::string path = dir / "f/x/y";
  const std::string before = path;
  LogCapture log;
  EXPECT_EQ(g_mkdir(path.data()), -1);
  EXPECT_EQ(path, before);
  EXPECT_EQ(log.take(),
            Lines{warning_line("g_dir", "Not a directory - " + (dir / "f/x") + "(" +
                                            std::to_string(ENOTDIR) + ").")});
}

TEST(Mkdir, ThePathIsRestoredEvenIfTheThreadEndsInTheReport) {
  TemporaryDirectory dir;
  dir.write("f", "");
  std::string path = dir / "f/x/y";
  const std::string before = path;
  g_debug_set_handler([](const char*, void*) -> int { pthread_exit(nullptr); }, nullptr);
  pthread_t thread;
  const auto make = [](void* at) -> void* {
    g_mkdir(static_cast<char*>(at));
    return at;
  };
  ASSERT_EQ(pthread_create(&thread, nullptr, make, path.data()), 0);
  void* result = nullptr;
  ASSERT_EQ(pthread_join(thread, &result), 0);
  g_debug_set_handler(nullptr, nullptr);
  EXPECT_EQ(result, nullptr);
  EXPECT_EQ(path, before);
}

TEST(Rmdir, RemovesATreeOfFilesAndDirectories) {
  TemporaryDirectory dir;
  const std::string tree = dir / "tree";
  make_directory(tree);
  dir.write("tree/.hidden", "");
  dir.write("tree/file", "abc");
  make_directory(tree + "/empty");
  make_directory(tree + "/sub");
  make_directory(tree + "/sub/...");
  dir.write("tree/sub/.../deep", "");
  ASSERT_EQ(mkfifo((tree + "/sub/fifo").c_str(), 0600), 0);
  dir.write("kept", "");
  const int expected = lowest_free_descriptor();
  LogCapture log;
  AllocationFaults faults(0);
  EXPECT_EQ(g_rmdir(tree.c_str()), 0);
  faults.disarm();
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_FALSE(exists(tree));
  EXPECT_TRUE(exists(dir / "kept"));
  EXPECT_EQ(lowest_free_descriptor(), expected);
}

TEST(Rmdir, ASlashAtTheEndMakesNoDifference) {
  TemporaryDirectory dir;
  make_directory(dir / "tree");
  dir.write("tree/file", "");
  EXPECT_EQ(g_rmdir((dir / "tree/").c_str()), 0);
  EXPECT_FALSE(exists(dir / "tree"));
}

TEST(Rmdir, AMissingPathIsLoggedAndZero) {
  TemporaryDirectory dir;
  const std::string path = dir / "missing";
  LogCapture log;
  EXPECT_EQ(g_rmdir(path.c_str()), 0);
  EXPECT_EQ(log.take(),
            Lines{warning_line("g_dir", "No such file or directory - " + path)});
  EXPECT_EQ(g_rmdir(""), 0);
  EXPECT_EQ(log.take(), Lines{warning_line("g_dir", "No such file or directory - ")});
}

TEST(Rmdir, AFileIsLoggedRemovedAndZero) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "");
  LogCapture log;
  EXPECT_EQ(g_rmdir(path.c_str()), 0);
  EXPECT_EQ(log.take(), Lines{warning_line("g_dir", "Not a directory - " + path)});
  EXPECT_FALSE(exists(path));
}

TEST(Rmdir, TheFirstComponentThatIsNoDirectoryIsRemoved) {
  TemporaryDirectory dir;
  make_directory(dir / "a");
  dir.write("a/file", "");
  dir.write("a/other", "");
  const std::string path = dir / "a/file/b/c";
  LogCapture log;
  EXPECT_EQ(g_rmdir(path.c_str()), 0);
  EXPECT_EQ(log.take(), Lines{warning_line("g_dir", "Not a directory - " + path)});
  EXPECT_FALSE(exists(dir / "a/file"));
  EXPECT_TRUE(exists(dir / "a/other"));
}

TEST(Rmdir, TheWalkOverTheComponentsStopsAtTheFirstThatCannotBeOpened) {
  TemporaryDirectory dir;
  make_link("nothing", dir / "dangling");
  const std::string path = (dir / "dangling") + "/x/y";
  LogCapture log;
  EXPECT_EQ(g_rmdir(path.c_str()), 0);
  EXPECT_EQ(log.take().size(), 1u);
  EXPECT_FALSE(exists(dir / "dangling"));
  EXPECT_TRUE(exists(dir.path()));
}

TEST(Rmdir, NothingIsRemovedBelowAComponentThatMayNotBeRead) {
  TemporaryDirectory dir;
  ASSERT_EQ(chmod(dir.path().c_str(), 0777), 0);
  const int result = unprivileged([&] {
    make_directory(dir / "closed");
    dir.write("closed/file", "");
    if (chmod((dir / "closed").c_str(), 0300) != 0) return 1;
    const LogCapture log;
    if (g_rmdir((dir / "closed/file/x").c_str()) != 0) return 2;
    if (chmod((dir / "closed").c_str(), 0700) != 0) return 3;
    return exists(dir / "closed/file") ? 0 : 4;
  });
  EXPECT_EQ(result, 0);
}

TEST(Rmdir, ALinkToADirectoryIsFollowedAndItsTargetEmptied) {
  TemporaryDirectory dir;
  make_directory(dir / "elsewhere");
  dir.write("elsewhere/lost", "");
  make_directory(dir / "tree");
  make_link("../elsewhere", dir / "tree/link");
  LogCapture log;
  EXPECT_EQ(g_rmdir((dir / "tree").c_str()), 0);
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_FALSE(exists(dir / "tree"));
  EXPECT_FALSE(exists(dir / "elsewhere/lost"));
  EXPECT_TRUE(exists(dir / "elsewhere"));
}

TEST(Rmdir, ALinkGivenAsThePathIsRemovedAndTheResultIsThatOfRmdir) {
  TemporaryDirectory dir;
  make_directory(dir / "target");
  dir.write("target/lost", "");
  make_link("target", dir / "link");
  EXPECT_EQ(g_rmdir((dir / "link").c_str()), -1);  // rmdir() refuses a link
  EXPECT_FALSE(exists(dir / "link"));
  EXPECT_TRUE(exists(dir / "target"));
  EXPECT_FALSE(exists(dir / "target/lost"));
}

TEST(Rmdir, LinksToFilesAreRemovedAndTheirTargetsKept) {
  TemporaryDirectory dir;
  const std::string kept = dir.write("kept", "abc");
  make_directory(dir / "tree");
  make_link("../kept", dir / "tree/link");
  EXPECT_EQ(g_rmdir((dir / "tree").c_str()), 0);
  EXPECT_EQ(test::read_file(kept), "abc");
}

TEST(Rmdir, ADanglingLinkIsLeftSilentlyAndTheDirectoryWithIt) {
  TemporaryDirectory dir;
  make_directory(dir / "tree");
  make_link("nothing", dir / "tree/dangling");
  dir.write("tree/file", "");
  LogCapture log;
  EXPECT_EQ(g_rmdir((dir / "tree").c_str()), -1);
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_EQ(list(dir / "tree", 0), std::vector<std::string>{"dangling"});
}

TEST(Rmdir, ALinkToItselfIsReportedAndLeft) {
  TemporaryDirectory dir;
  make_directory(dir / "tree");
  make_link("loop", dir / "tree/loop");
  dir.write("tree/file", "");
  LogCapture log;
  EXPECT_EQ(g_rmdir((dir / "tree").c_str()), -1);
  EXPECT_EQ(log.take(), Lines{warning_line("g_dir", error_text(ELOOP) + " - " +
                                                        (dir / "tree/loop") + ".")});
  EXPECT_EQ(list(dir / "tree", 0), std::vector<std::string>{"loop"});
}

TEST(Rmdir, LinksToTheDirectoryItselfEndSoonAndAreRemoved) {
  TemporaryDirectory dir;
  make_directory(dir / "tree");
  make_link(".", dir / "tree/again");
  make_link("../tree", dir / "tree/and_again");
  dir.write("tree/file", "");
  dir.write("kept", "");
  LogCapture log;
  EXPECT_EQ(g_rmdir((dir / "tree").c_str()), 0);
  EXPECT_FALSE(exists(dir / "tree"));
  EXPECT_TRUE(exists(dir / "kept"));
}

TEST(Rmdir, WhatCannotBeReadIsReportedAndLeft) {
  TemporaryDirectory dir;
  ASSERT_EQ(chmod(dir.path().c_str(), 0777), 0);
  const int result = unprivileged([&] {
    make_directory(dir / "tree");
    dir.write("tree/file", "");
    make_directory(dir / "tree/closed");
    dir.write("tree/closed/kept", "");
    if (chmod((dir / "tree/closed").c_str(), 0) != 0) return 1;
    LogCapture log;
    if (g_rmdir((dir / "tree").c_str()) != -1) return 2;
    const std::string closed = dir / "tree/closed";
    if (log.take() != Lines{warning_line("g_dir", "Permission denied - " + closed)})
      return 3;
    if (exists(dir / "tree/file")) return 4;
    // A directory that can be listed but not searched: each entry is reported.
    if (chmod(closed.c_str(), 0400) != 0) return 5;
    if (g_rmdir(closed.c_str()) != -1) return 6;
    if (log.take() !=
        Lines{warning_line("g_dir", "Permission denied - " + closed + "/kept.")}) {
      return 7;
    }
    if (chmod(closed.c_str(), 0700) != 0 || !exists(closed + "/kept")) return 8;
    return g_rmdir((dir / "tree").c_str()) == 0 ? 0 : 9;
  });
  EXPECT_EQ(result, 0);
}

TEST(Rmdir, RunningOutOfDescriptorsRemovesNoLinkOnTheWay) {
  TemporaryDirectory dir;
  make_directory(dir / "real");
  make_directory(dir / "real/tree");
  make_link("real", dir / "way");
  char former_directory[PATH_MAX];
  ASSERT_NE(getcwd(former_directory, sizeof former_directory), nullptr);
  struct rlimit previous;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &previous), 0);
  struct rlimit none = previous;
  none.rlim_cur = static_cast<rlim_t>(lowest_free_descriptor());
  LogCapture log;
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  const int result = g_rmdir("way/tree");
  setrlimit(RLIMIT_NOFILE, &previous);
  ASSERT_EQ(chdir(former_directory), 0);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(log.take(), Lines{warning_line("g_dir", error_text(EMFILE) + " - way/tree")});
  EXPECT_TRUE(exists(dir / "way"));
  EXPECT_TRUE(exists(dir / "real/tree"));
}

TEST(Rmdir, NamesMayHoldAnyByte) {
  TemporaryDirectory dir;
  make_directory(dir / "tree");
  std::vector<std::string> names;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte == '/') continue;
    names.push_back(std::string(1, static_cast<char>(byte)) + "%s%n");
    dir.write("tree/" + names.back(), "");
  }
  std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
    return std::strcmp(a.c_str(), b.c_str()) < 0;
  });
  EXPECT_EQ(list(dir / "tree", 0), names);
  const auto count = [](const char*, const struct stat64*, void*) { return 1; };
  EXPECT_EQ(g_scandir((dir / "tree").c_str(), count, nullptr), 254);
  LogCapture log;
  EXPECT_EQ(g_rmdir((dir / "tree").c_str()), 0);
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_FALSE(exists(dir / "tree"));
}

TEST(Rmdir, AHundredThousandEntriesAreListedWalkedAndRemoved) {
  TemporaryDirectory dir;
  make_directory(dir / "tree");
  const int tree = open((dir / "tree").c_str(), O_RDONLY | O_DIRECTORY);
  for (int i = 0; i < 100000; ++i) {
    const int file =
        openat(tree, ("n" + std::to_string(i)).c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_NE(file, -1);
    close(file);
  }
  close(tree);
  EXPECT_EQ(list(dir / "tree", 2).size(), 100000u);
  const auto count = [](const char*, const struct stat64*, void*) { return 1; };
  EXPECT_EQ(g_scandir((dir / "tree").c_str(), count, nullptr), 100000);
  EXPECT_EQ(g_rmdir((dir / "tree").c_str()), 0);
  EXPECT_FALSE(exists(dir / "tree"));
}

int removed_in_thread;

TEST(Rmdir, DepthCostsNeitherDescriptorsNorStack) {
  TemporaryDirectory dir;
  make_directory(dir / "tree");
  std::string tree = dir / "tree";
  test::make_deep_tree(tree, 2000, "d", "file");
  struct rlimit previous;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &previous), 0);
  struct rlimit few = previous;
  few.rlim_cur = 256;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  const auto stack = std::max<size_t>(static_cast<size_t>(PTHREAD_STACK_MIN), 131072);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, stack), 0);
  LogCapture log;
  pthread_t thread;
  const auto remove = [](void* path) -> void* {
    removed_in_thread = g_rmdir(static_cast<const char*>(path));
    return nullptr;
  };
  removed_in_thread = 7;
  ASSERT_EQ(pthread_create(&thread, &attributes, remove, tree.data()), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attributes);
  setrlimit(RLIMIT_NOFILE, &previous);
  EXPECT_EQ(removed_in_thread, 0);
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_FALSE(exists(tree));
}

TEST(Rmdir, PathsTooLongForTheSystemAreReportedAndLeft) {
  TemporaryDirectory dir;
  const std::string tree = dir / "tree";
  make_directory(tree);
  dir.write("tree/file", "");
  // 20 levels of 250 bytes: the 17th directory's path does not fit 4096.
  test::make_deep_tree(tree, 20, std::string(250, 'x'), "file");
  LogCapture log;
  EXPECT_EQ(g_rmdir(tree.c_str()), -1);
  const Lines lines = log.take();
  ASSERT_EQ(lines.size(), 1u);
  const std::string start = warning_line(
      "g_dir", error_text(ENAMETOOLONG) + " - " + tree + "/" + std::string(250, 'x'));
  EXPECT_EQ(lines[0].substr(0, start.size()), start);
  EXPECT_FALSE(exists(tree + "/file"));
  EXPECT_TRUE(exists(tree + "/" + std::string(250, 'x')));
  test::remove_deep_tree(tree);
  EXPECT_FALSE(exists(tree));
}

TEST(Rmdir, AnOverlongPathIsReportedAndNothingOnItRemoved) {
  TemporaryDirectory dir;
  dir.write("file", "");
  std::string path = dir.path();
  while (path.size() < 5000) path += "/.";
  LogCapture log;
  EXPECT_EQ(g_rmdir(path.c_str()), 0);
  const Lines lines = log.take();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(
      lines[0].find(warning_line("g_dir", error_text(ENAMETOOLONG) + " - " + dir.path())),
      0u);
  EXPECT_TRUE(exists(dir / "file"));
}

TEST(Rmdir, EntriesThatVanishMeanwhileAreSkipped) {
  for (int round = 0; round < 2; ++round) {
    TemporaryDirectory dir;
    const std::string tree = dir / "tree";
    make_directory(tree);
    for (int i = 0; i < 20; ++i) {
      const std::string sub = "tree/" + std::to_string(i);
      make_directory(dir / sub);
      for (int j = 0; j < 20; ++j) dir.write(sub + "/" + std::to_string(j), "");
    }
    const LogCapture log;  // which directories vanish before they are opened is chance
    std::thread other([&] { g_rmdir(tree.c_str()); });
    g_rmdir(tree.c_str());
    other.join();
    EXPECT_FALSE(exists(tree));
  }
}

TEST(Rmdir, SurvivesAnExhaustedHeap) {
  TemporaryDirectory dir;
  const std::string tree = dir / "tree";
  const int expected = lowest_free_descriptor();
  const LogCapture quiet(G_LOG_SILENT);
  const std::string sub = tree + "/sub";
  test::for_each_failed_allocation([&](AllocationFaults& faults) {
    // Nothing here allocates. The names need more than one block.
    mkdir(tree.c_str(), 0755);
    mkdir(sub.c_str(), 0755);
    const int directory = open(sub.c_str(), O_RDONLY | O_DIRECTORY);
    for (int i = 0; i < 300; ++i) {
      char name[16];
      std::snprintf(name, sizeof name, "%d", i);
      close(openat(directory, name, O_CREAT | O_WRONLY, 0600));
    }
    close(directory);
    const int result = g_rmdir(tree.c_str());
    faults.disarm();
    if (faults.failures() == 0) {
      EXPECT_EQ(result, 0);
      EXPECT_FALSE(exists(tree));
    }
    EXPECT_EQ(lowest_free_descriptor(), expected);
  });
}

TEST(Rmdir, AShortageBeforeAnyNameIsReadIsReportedAndReturnsMinusOne) {
  TemporaryDirectory dir;
  const std::string tree = dir / "tree";
  make_directory(tree);
  LogCapture log;
  int result = 7;
  {
    AllocationFaults faults(2);  // opendir()'s, the first block
    result = g_rmdir(tree.c_str());
  }
  EXPECT_EQ(result, -1);
  EXPECT_EQ(log.take(), Lines{warning_line("g_dir", "failed to allocate 512 bytes.")});
  EXPECT_TRUE(exists(tree));
}

TEST(Rmdir, AShortageWhileNamesAreReadIsReported) {
  TemporaryDirectory dir;
  const std::string tree = dir / "tree";
  make_directory(tree);
  for (int i = 0; i < 300; ++i) dir.write("tree/" + std::to_string(i), "");
  LogCapture log;
  int result = 7;
  {
    AllocationFaults faults(3);  // opendir()'s, the first block, its growth
    result = g_rmdir(tree.c_str());
  }
  EXPECT_EQ(result, -1);
  EXPECT_EQ(log.take(), Lines{warning_line("g_dir", "failed to allocate 1024 bytes.")});
  const size_t left = list(tree, 0).size();
  EXPECT_GT(left, 0u);
  EXPECT_LT(left, 300u);  // what was read is removed
}

}  // namespace
