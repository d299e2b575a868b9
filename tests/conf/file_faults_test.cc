// Files whose reads and writes fail or fall short. This program defines read() and write()
// itself, so that the library's calls come through here.
//
// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <functional>

#include "conf/conf_support.h"
#include "support/ended_thread.h"

using namespace test;

namespace {

// When set, decides the result of a call of the given length: -1 fails with `errno`, less
// than the length cuts the call short.
std::function<int64_t(size_t)> on_read;
std::function<int64_t(size_t)> on_write;

ssize_t faulty_call(long number, int descriptor, void* buffer, size_t length,
                    std::function<int64_t(size_t)>& decide) {
  if (decide != nullptr) {
    const int64_t result = decide(length);
    if (result <= 0) return static_cast<ssize_t>(result);
    length = static_cast<size_t>(result);
  }
  return static_cast<ssize_t>(syscall(number, descriptor, buffer, length));
}

}  // namespace

extern "C" ssize_t read(int descriptor, void* buffer, size_t length) {
  return faulty_call(SYS_read, descriptor, buffer, length, on_read);
}

extern "C" ssize_t write(int descriptor, const void* buffer, size_t length) {
  return faulty_call(SYS_write, descriptor, const_cast<void*>(buffer), length, on_write);
}

namespace {

class ConfFileFaults : public testing::Test {
 protected:
  ~ConfFileFaults() override {
    on_read = nullptr;
    on_write = nullptr;
  }

  Lines cannot_read(const std::string& path) {
    return {warning_line("g_conf", "can't read file '" + path + "'."),
            warning_line("g_conf", "can't load config file '" + path + "'.")};
  }
};

TEST_F(ConfFileFaults, AThreadThatEndsWhileAFailedReadIsReportedLosesNothing) {
  const ConfFile file("[a]\nk=v\n");
  on_read = [](size_t) { return -1; };
  expect_nothing_lost_at_a_message([&file] { g_conf_open(file.path().c_str()); });
}

TEST_F(ConfFileFaults, AReadThatGivesLessThanTheSizeFailsTheLoad) {
  const ConfFile file("[a]\nk=v\n");
  LogCapture log;
  on_read = [](size_t length) { return static_cast<int64_t>(length) - 1; };
  EXPECT_EQ(g_conf_open(file.path().c_str()), nullptr);
  on_read = nullptr;
  EXPECT_EQ(log.take(), cannot_read(file.path()));
}

TEST_F(ConfFileFaults, AFailedReadFailsTheLoad) {
  const ConfFile file("[a]\nk=v\n");
  LogCapture log;
  on_read = [](size_t) {
    errno = EIO;
    return -1;
  };
  EXPECT_EQ(g_conf_open(file.path().c_str()), nullptr);
  on_read = nullptr;
  EXPECT_EQ(log.take(), cannot_read(file.path()));
}

TEST_F(ConfFileFaults, AFileIsReadInOneCallOfItsSize) {
  const ConfFile file("[a]\nk=v\n");
  std::vector<size_t> lengths;
  on_read = [&](size_t length) {
    lengths.push_back(length);
    return static_cast<int64_t>(length);
  };
  const Conf conf = file.open();
  on_read = nullptr;
  EXPECT_EQ(lengths, std::vector<size_t>{8});
}

TEST_F(ConfFileFaults, AFileIsWrittenInOneCall) {
  const ConfFile file;
  const Conf conf = file.open();
  for (int key = 0; key < 1000; ++key) {
    g_conf_write_int(conf.get(), "s", ("k" + std::to_string(key)).c_str(), key);
  }
  int calls = 0;
  on_write = [&](size_t length) {
    ++calls;
    return static_cast<int64_t>(length);
  };
  g_conf_sync(conf.get());
  on_write = nullptr;
  EXPECT_EQ(calls, 1);
}

TEST_F(ConfFileFaults, WhatFollowsTheTextIsCutOff) {
  const ConfFile file("[a]\nk=v\n");
  const Conf conf = file.open();
  g_conf_write_string(conf.get(), "a", "k", "w");
  on_write = [&](size_t length) {
    // Somebody who ignores the lock makes the file longer.
    EXPECT_EQ(truncate(file.path().c_str(), 1000), 0);
    return static_cast<int64_t>(length);
  };
  g_conf_sync(conf.get());
  on_write = nullptr;
  EXPECT_EQ(file.text(), "[a]\nk=w\n\n");
}

// Five lines of 4, 8, 4, 1 and 4 + 4 + 1 bytes.
constexpr char kText[] = "[a]\nkey=val\nx=y\n\n[b]\nl=m\n\n";

// What the file holds when it takes `room` bytes and no more, and what was logged.
void expect_after_full_disk(int64_t room, int failures) {
  SCOPED_TRACE(testing::Message() << room << " bytes of room");
  const ConfFile file(kText);
  const Conf conf = file.open();
  g_conf_write_string(conf.get(), "b", "l", "n");
  std::string expected = kText;
  expected.replace(expected.find("l=m"), 3, "l=n");
  LogCapture log;
  int64_t left = room;
  on_write = [&](size_t length) -> int64_t {
    if (left == 0) {
      errno = ENOSPC;
      return -1;
    }
    const auto taken = std::min(left, static_cast<int64_t>(length));
    left -= taken;
    return taken;
  };
  g_conf_sync(conf.get());
  on_write = nullptr;
  EXPECT_EQ(file.text(), expected.substr(0, static_cast<size_t>(room)));
  EXPECT_EQ(log.take(), Lines(static_cast<size_t>(failures),
                              warning_line("g_file", "No space left on device - 28.")));
  EXPECT_EQ(conf->dirty, 0);
}

TEST_F(ConfFileFaults, EachLineThatAFullDiskRefusesIsReportedOnce) {
  expect_after_full_disk(0, 7);
  expect_after_full_disk(4, 6);   // after the first line
  expect_after_full_disk(5, 5);   // within the second, which is not reported
  expect_after_full_disk(12, 5);  // after the second
  expect_after_full_disk(25, 1);  // after the last but one
  expect_after_full_disk(24, 1);
}

TEST_F(ConfFileFaults, ALineThatWasCutShortIsGivenUpAndTheNextIsTried) {
  const ConfFile file(kText);
  const Conf conf = file.open();
  g_conf_write_string(conf.get(), "b", "l", "n");
  bool first = true;
  on_write = [&](size_t length) -> int64_t {
    return std::exchange(first, false) ? 6 : static_cast<int64_t>(length);
  };
  g_conf_sync(conf.get());
  on_write = nullptr;
  EXPECT_EQ(file.text(), "[a]\nkex=y\n\n[b]\nl=n\n\n");
}

TEST_F(ConfFileFaults, AWriteThatTakesNothingStillEnds) {
  const ConfFile file(kText);
  const Conf conf = file.open();
  g_conf_write_string(conf.get(), "b", "l", "n");
  int calls = 0;
  on_write = [&](size_t) -> int64_t {
    ++calls;
    return 0;
  };
  g_conf_sync(conf.get());
  on_write = nullptr;
  EXPECT_EQ(calls, 8);  // everything in one call, then each of the seven lines
  EXPECT_EQ(file.text(), "");
}

// A log line that another thread writes at that moment must not end up in the file.
TEST_F(ConfFileFaults, AProgramWithoutStandardErrorLogsNothingIntoTheFile) {
  for (const bool without_output : {false, true}) {
    const ConfFile file("[a]\nk=v\n");
    in_child([&] {
      const Conf conf = file.open();
      g_conf_write_string(conf.get(), "a", "k", "w");
      close(STDERR_FILENO);
      if (without_output) close(STDOUT_FILENO);
      on_write = [without_output](size_t length) {
        g_log(G_LOG_WARNING, "test", __LINE__, "a line");
        syscall(SYS_write, STDERR_FILENO, "a line\n", 7);
        if (without_output) syscall(SYS_write, STDOUT_FILENO, "a line\n", 7);
        return static_cast<int64_t>(length);
      };
      g_conf_sync(conf.get());
      on_write = nullptr;
    });
    EXPECT_EQ(file.text(), "[a]\nk=w\n\n");
  }
}

}  // namespace
