// What a program without standard streams prints must not end up in a file.
//
// SPDX-License-Identifier: MIT

#include <groundwork/groundwork.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "support/closed_descriptors.h"
#include "support/log_capture.h"
#include "support/next_function.h"
#include "support/temporary_directory.h"

using test::Descriptors;
using test::is_open;
using test::kClosedSets;
using test::run_without;
using test::taken_outputs;
using test::TemporaryDirectory;
using test::to_text;

namespace {

// While set, each call below looks whether one of these was taken meanwhile.
const Descriptors* watched = nullptr;
std::string seen;
int looks = 0;

void look() {
  if (watched == nullptr) return;
  ++looks;
  if (seen.empty()) seen = taken_outputs(*watched);
}

}  // namespace

// The library's calls come here: the test program's names go before the C library's.
extern "C" ssize_t read(int fd, void* buf, size_t size) {
  look();
  return test::next_function<ssize_t(int, void*, size_t)>("read")(fd, buf, size);
}

extern "C" struct dirent64* readdir64(DIR* directory) {
  look();
  return test::next_function<struct dirent64*(DIR*)>("readdir64")(directory);
}

extern "C" char* fgets(char* buf, int size, std::FILE* stream) {
  look();
  return test::next_function<char*(char*, int, std::FILE*)>("fgets")(buf, size, stream);
}

namespace {

int visit_nothing(const char*, const struct stat64*, void*) {
  return 0;
}

bool opens(const std::string& path, int mode) {
  return g_file_open(path.c_str(), mode) != nullptr;
}

// In a directory with "file" and "tree/sub/file": opens something, and may leave it open.
// Returns true on success.
struct Opener {
  const char* name;
  int least_looks;  // while it is open, where it does not stay so
  bool (*open)(const std::string& directory);
};

const Opener kOpeners[] = {
    {"a file to read", 0, [](const std::string& dir) { return opens(dir + "/file", 0); }},
    {"a file to write", 0, [](const std::string& dir) { return opens(dir + "/file", 1); }},
    {"a new file", 0, [](const std::string& dir) { return opens(dir + "/new", 2); }},
    {"three files", 0,
     [](const std::string& dir) {
       return opens(dir + "/file", 0) && opens(dir + "/file", 0) && opens(dir + "/file", 0);
     }},
    {"a map", 0,
     [](const std::string& dir) {
       return g_file_map((dir + "/file").c_str(), 0, 4, 0, nullptr) != nullptr;
     }},
    {"a whole file", 1,
     [](const std::string& dir) {
       int64_t size = 0;
       return g_file_read_buf((dir + "/file").c_str(), &size) != nullptr;
     }},
    {"the files of a copy", 2,
     [](const std::string& dir) {
       return g_file_copy((dir + "/file").c_str(), (dir + "/copy").c_str()) == 0;
     }},
    {"directories to walk", 6,
     [](const std::string& dir) {
       return g_scandir((dir + "/tree").c_str(), visit_nothing, nullptr) == 0;
     }},
    {"directories to remove", 6,
     [](const std::string& dir) { return g_rmdir((dir + "/tree").c_str()) == 0; }},
    {"the figures of the processor", 1,
     [](const std::string&) { return g_sys_cpu_load(0) != -1; }},
    {"the figures of the memory", 2,
     [](const std::string&) { return g_sys_mem_use() != -1; }},
    {"a configuration", 1,
     [](const std::string& dir) {
       GConf* const conf = g_conf_open((dir + "/file").c_str());
       g_conf_write_string(conf, "a", "b", "c");
       g_conf_sync(conf);
       return conf != nullptr;
     }},
};

TEST(WithoutStandardStreams, NothingThatIsOpenedTakesThePlaceOfStandardOutputOrError) {
  for (const Opener& opener : kOpeners) {
    for (const Descriptors& closed : kClosedSets) {
      SCOPED_TRACE(std::string(opener.name) + ", " + to_text(closed));
      TemporaryDirectory dir;
      dir.write("file", "text");
      ASSERT_EQ(mkdir((dir / "tree").c_str(), 0755), 0);
      ASSERT_EQ(mkdir((dir / "tree/sub").c_str(), 0755), 0);
      dir.write("tree/sub/file", "");
      EXPECT_EQ(run_without(closed,
                            [&] {
                              watched = &closed;
                              const bool is_opened = opener.open(dir.path());
                              watched = nullptr;
                              if (!is_opened) return std::string("failed");
                              if (looks < opener.least_looks) {
                                return "only " + std::to_string(looks) + " looks";
                              }
                              return seen + taken_outputs(closed);
                            }),
                "");
    }
  }
}

TEST(WithoutStandardStreams, ALogLineIsNoPartOfAFile) {
  for (const Descriptors& closed : kClosedSets) {
    SCOPED_TRACE(to_text(closed));
    TemporaryDirectory dir;
    const std::string path = dir / "new";
    EXPECT_EQ(run_without(closed,
                          [&] {
                            GFile* const file = g_file_open(path.c_str(), 2);
                            g_file_write(file, "content", 7);
                            g_log(G_LOG_ERROR, "test", 1, "a line");
                            std::puts("a line");
                            std::fflush(stdout);
                            g_file_close(file);
                            return std::string();
                          }),
              "");
    EXPECT_EQ(test::read_file(path), "content");
  }
}

TEST(WithoutStandardStreams, AFileStillTakesThePlaceOfStandardInput) {
  TemporaryDirectory dir;
  const std::string path = dir.write("file", "text");
  EXPECT_EQ(run_without({0},
                        [&] {
                          g_file_open(path.c_str(), 0);
                          return std::string(is_open(0) ? "open" : "closed");
                        }),
            "open");
  EXPECT_EQ(
      run_without({0, 1, 2}, [&] { return std::to_string(g_file_touch(path.c_str())); }),
      "-1");
  EXPECT_EQ(run_without({1, 2}, [&] { return std::to_string(g_file_touch(path.c_str())); }),
            "0");
}

TEST(WithoutStandardStreams, WhatMovesIsClosedByExecAndLeaksNothing) {
  TemporaryDirectory dir;
  const std::string path = dir.write("file", "text");
  EXPECT_EQ(run_without({2},
                        [&]() -> std::string {
                          const int next = dup(0);  // takes 2
                          const int free = dup(0);
                          close(free);
                          close(next);
                          GFile* const file = g_file_open(path.c_str(), 0);
                          if (fcntl(free, F_GETFD) != FD_CLOEXEC)
                            return "not close-on-exec";
                          g_file_close(file);
                          return is_open(free) ? "left open" : taken_outputs({2});
                        }),
            "");
}

TEST(WithoutStandardStreams, WhereNoOtherDescriptorIsFreeOpeningFails) {
  TemporaryDirectory dir;
  const std::string path = dir.write("file", "text");
  EXPECT_EQ(run_without({2},
                        [&]() -> std::string {
                          struct rlimit limit = {};
                          getrlimit(RLIMIT_NOFILE, &limit);
                          limit.rlim_cur = 8;
                          setrlimit(RLIMIT_NOFILE, &limit);
                          while (dup(0) != -1) continue;  // takes 2, too
                          close(2);
                          test::LogCapture log;
                          if (g_file_open(path.c_str(), 0) != nullptr) return "opened";
                          return log.take().at(0) + taken_outputs({2});
                        }),
            test::warning_line(
                "g_file", "can't open file '" + path + "' - " + std::strerror(EMFILE)));
}

}  // namespace
