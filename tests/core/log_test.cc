// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/package.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/allocation_faults.h"

namespace {

constexpr const char* kMarkers[] = {"/tmp/vk_debug", "/tmp/vk_message",
                                    "/tmp/vk_information", "/tmp/vk_warning",
                                    "/tmp/vk_error"};

// Puts back everything that a test may change.
class Log : public ::testing::Test {
 protected:
  ~Log() override {
    g_debug_set_handler(nullptr, nullptr);
    g_debug_set_level2(3);
    g_package_set_name("");
  }

  // Runs `action` and returns what it wrote to standard error.
  template <typename Action>
  static std::string written_by(Action action) {
    ::testing::internal::CaptureStderr();
    action();
    return ::testing::internal::GetCapturedStderr();
  }
};

struct Received {
  std::vector<std::string> texts;
  int result = 0;
};

int receive(const char* text, void* arg) {
  auto* const received = static_cast<Received*>(arg);
  received->texts.emplace_back(text);
  return received->result;
}

TEST_F(Log, ThresholdIsThreeAtLoad) {
  EXPECT_EQ(g_debug_get_level(), 3);
}

TEST_F(Log, BelowTheThresholdReturnsOneAndPrintsNothing) {
  int result = 0;
  EXPECT_EQ(written_by([&] { result = g_log(2, "src", 7, "text"); }), "");
  EXPECT_EQ(result, 1);
}

TEST_F(Log, BelowTheThresholdNothingIsFormatted) {
  int count = -1;
  g_log(2, "src", 7, "text%n", &count);
  EXPECT_EQ(count, -1);
  g_debug_set_level2(0);
  g_debug_set_handler([](const char*, void*) { return 0; }, nullptr);
  g_log(2, "src", 7, "text%n", &count);
  EXPECT_EQ(count, 4);
}

struct Shape {
  int level;
  const char* line;
};

class LogShape : public Log, public ::testing::WithParamInterface<Shape> {};

TEST_P(LogShape, ShowsLocationAndTagByLevel) {
  g_debug_set_level2(-10);
  EXPECT_EQ(written_by([] { g_log(GetParam().level, "src", 7, "text %d", 5); }),
            GetParam().line);
}

INSTANTIATE_TEST_SUITE_P(
    Levels, LogShape,
    ::testing::Values(Shape{0, "src:7: text 5\n"}, Shape{1, "text 5\n"},
                      Shape{2, "src:7: text 5\n"}, Shape{3, "src:7: [WARNING] text 5\n"},
                      Shape{4, "src:7: [CRITICAL] text 5\n"}, Shape{5, "text 5\n"},
                      Shape{99, "text 5\n"}, Shape{-1, "text 5\n"}));

TEST_F(Log, PackageNameComesFirstWithAColon) {
  g_package_set_name("app");
  EXPECT_EQ(written_by([] { g_log(4, "g_mem", 15, "'%s' FAILED.", "size > 0"); }),
            "app: g_mem:15: [CRITICAL] 'size > 0' FAILED.\n");
  g_debug_set_level2(1);
  EXPECT_EQ(written_by([] { g_log(1, "g_conf", 15, "note"); }), "app: note\n");
}

TEST_F(Log, SilentThresholdSuppressesAllLevelsOfTheLibraryButNotNinetyNine) {
  g_debug_set_level2(99);
  for (int level = 0; level <= 4; ++level) {
    EXPECT_EQ(written_by([=] { EXPECT_EQ(g_log(level, "src", 7, "text"), 1); }), "");
  }
  EXPECT_EQ(written_by([] { g_log(99, "src", 7, "text"); }), "text\n");
  EXPECT_EQ(written_by([] { g_log(100, "src", 7, "text"); }), "text\n");
}

TEST_F(Log, NegativeThresholdLetsNegativeLevelsThrough) {
  g_debug_set_level2(-2);
  EXPECT_EQ(written_by([] { g_log(-2, "src", 7, "text"); }), "text\n");
  EXPECT_EQ(written_by([] { g_log(-3, "src", 7, "text"); }), "");
}

// Kept: this setter has no effect.
TEST_F(Log, SetLevelDoesNothing) {
  g_debug_set_level2(4);
  g_debug_set_level(0);
  EXPECT_EQ(g_debug_get_level(), 4);
}

TEST_F(Log, SetLevelTwoStoresAnyValue) {
  for (const int level : {0, 4, 99, -5, 123456}) {
    g_debug_set_level2(level);
    EXPECT_EQ(g_debug_get_level(), level);
  }
}

TEST_F(Log, HandlerGetsTheLineWithoutNewlineAndItsResultComesBack) {
  Received received;
  received.result = -42;
  g_package_set_name("app");
  g_debug_set_handler(receive, &received);
  int result = 0;
  EXPECT_EQ(written_by([&] { result = g_log(3, "src", 7, "text"); }), "");
  EXPECT_EQ(result, -42);
  ASSERT_EQ(received.texts.size(), 1u);
  EXPECT_EQ(received.texts[0], "app: src:7: [WARNING] text");
}

TEST_F(Log, NullHandlerGoesBackToStandardError) {
  Received received;
  g_debug_set_handler(receive, &received);
  g_debug_set_handler(nullptr, &received);
  EXPECT_EQ(written_by([] { g_log(3, "src", 7, "text"); }), "src:7: [WARNING] text\n");
  EXPECT_TRUE(received.texts.empty());
}

TEST_F(Log, ResultOfStandardErrorIsThatOfFputs) {
  int result = -1;
  written_by([&] { result = g_log(3, "src", 7, "text"); });
  EXPECT_GE(result, 0);
  EXPECT_NE(result, EOF);
}

TEST_F(Log, AnUnwritableStandardErrorGivesEof) {
  const int saved = dup(2);
  const int full = open("/dev/full", O_WRONLY);
  ASSERT_GE(full, 0);
  dup2(full, 2);
  const int result = g_log(3, "src", 7, "text");
  dup2(saved, 2);
  close(saved);
  close(full);
  clearerr(stderr);
  EXPECT_EQ(result, EOF);
}

TEST_F(Log, ALineOf1591BytesIsCutNewlineIncluded) {
  g_debug_set_level2(0);
  // "src:7: " is 7 bytes; 1583 more leave room for the newline, 1584 do not.
  const std::string fits(1583, 'x');
  EXPECT_EQ(written_by([&] { g_log(2, "src", 7, "%s", fits.c_str()); }),
            "src:7: " + fits + "\n");
  const std::string full(1584, 'x');
  EXPECT_EQ(written_by([&] { g_log(2, "src", 7, "%s", full.c_str()); }), "src:7: " + full);
  const std::string over(5000, 'x');
  EXPECT_EQ(written_by([&] { g_log(2, "src", 7, "%s", over.c_str()); }), "src:7: " + full);
}

TEST_F(Log, AHandlerGetsA1591stByteInPlaceOfTheNewline) {
  Received received;
  g_debug_set_handler(receive, &received);
  const std::string over(5000, 'x');
  g_log(3, "src", 7, "%s", over.substr(0, 1591 - 17).c_str());
  g_log(3, "src", 7, "%s", over.c_str());
  const std::string full = "src:7: [WARNING] " + over.substr(0, 1591 - 17);
  EXPECT_EQ(received.texts, (std::vector<std::string>{full, full}));
}

TEST_F(Log, AMessageIsCutAt1591Bytes) {
  const std::string over(5000, 'x');
  g_debug_set_level2(1);
  EXPECT_EQ(written_by([&] { g_log(1, "src", 7, "%s", over.c_str()); }),
            std::string(1591, 'x'));
}

TEST_F(Log, ALongSourceNameIsCutWithTheLine) {
  const std::string name(5000, 's');
  EXPECT_EQ(written_by([&] { g_log(3, name.c_str(), 7, "text"); }), std::string(1591, 's'));
}

int log_with_list(int level, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  const int result = g_logv(level, "src", 7, fmt, ap);
  va_end(ap);
  return result;
}

TEST_F(Log, LogvFiltersAndFormatsLikeLog) {
  EXPECT_EQ(written_by([] { EXPECT_EQ(log_with_list(2, "a %d", 1), 1); }), "");
  EXPECT_EQ(written_by([] { log_with_list(3, "a %d", 1); }), "src:7: [WARNING] a 1\n");
}

TEST_F(Log, PrintIgnoresThresholdAndPackageAndAddsNothing) {
  g_debug_set_level2(99);
  g_package_set_name("app");
  EXPECT_EQ(written_by([] { g_print("a %d", 1); }), "a 1");
  Received received;
  g_debug_set_handler(receive, &received);
  g_print("b\n");
  ASSERT_EQ(received.texts.size(), 1u);
  EXPECT_EQ(received.texts[0], "b\n");
}

// Kept: callers see the cut at 1019 bytes.
TEST_F(Log, PrintIsCutAt1019Bytes) {
  const std::string fits(1019, 'x');
  EXPECT_EQ(written_by([&] { g_print("%s", fits.c_str()); }), fits);
  EXPECT_EQ(written_by([&] { g_print("%sy", fits.c_str()); }), fits);
  const std::string over(5000, 'x');
  EXPECT_EQ(written_by([&] { g_print("%s", over.c_str()); }), fits);
}

TEST_F(Log, EachTextIsWrittenByOneCall) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends), 0);
  const int saved = dup(2);
  dup2(ends[0], 2);
  g_package_set_name("app");
  const std::string message(1000, 'x');
  g_log(4, "src", 7, "%s", message.c_str());
  g_print("%s\n%s\n", "one", "two");
  dup2(saved, 2);
  close(saved);
  close(ends[0]);
  const auto next_written = [&] {
    char text[4096];
    const ssize_t length = recv(ends[1], text, sizeof text, MSG_DONTWAIT);
    return std::string(text, length > 0 ? static_cast<size_t>(length) : 0);
  };
  EXPECT_EQ(next_written(), "app: src:7: [CRITICAL] " + message + "\n");
  EXPECT_EQ(next_written(), "one\ntwo\n");
  EXPECT_EQ(next_written(), "");
  close(ends[1]);
}

TEST_F(Log, TestOutDoesNothing) {
  g_debug_set_level2(-100);
  EXPECT_EQ(written_by([] { test_out(); }), "");
}

TEST_F(Log, AllocatesNothing) {
  int lines = 0;
  g_debug_set_handler([](const char*, void* count) { return ++*static_cast<int*>(count); },
                      &lines);
  test::AllocationFaults faults(0);
  g_log(3, "src", 7, "text %s %d", "a", 5);
  g_print("text %s %d", "a", 5);
  faults.disarm();
  EXPECT_EQ(faults.calls(), 0);
  EXPECT_EQ(lines, 2);
}

TEST_F(Log, AllocatesNothingForStandardErrorEither) {
  int calls = -1;
  const std::string text = written_by([&] {
    test::AllocationFaults faults(0);
    g_log(4, "src", 7, "text %s %d", "a", 5);
    g_print("text %s %d", "a", 5);
    g_debug_init();
    faults.disarm();
    calls = faults.calls();
  });
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(text.rfind("src:7: [CRITICAL] text a 5\ntext a 5[g_debug_init]: ", 0), 0u);
}

TEST_F(Log, ThreadsMayLogWhileTheThresholdChanges) {
  static std::atomic<int> lines;
  lines = 0;
  g_debug_set_handler(
      [](const char*, void*) {
        ++lines;
        return 0;
      },
      nullptr);
  std::atomic<bool> done{false};
  std::thread setter([&] {
    for (int i = 0; !done; ++i) g_debug_set_level2(i % 5);
  });
  int emitted = 0;
  for (int i = 0; i < 100000; ++i) {
    const int level = i % 5;
    const int result = g_log(level, "src", i, "text");
    if (level == 4) {
      EXPECT_EQ(result, 0);  // never below the threshold
    }
    emitted += result == 0 ? 1 : 0;
    EXPECT_EQ(lines, emitted);
  }
  done = true;
  setter.join();
  EXPECT_GE(emitted, 20000);
}

// The marker files are the machine's: the tests take turns, and put back what was there.
class LogMarkers : public Log {
 protected:
  LogMarkers() {
    lock_ = open("/tmp/groundwork-marker-test.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    flock(lock_, LOCK_EX);
    for (const char* marker : kMarkers) {
      if (access(marker, F_OK) == 0) {
        present_.push_back(marker);
        rename(marker, (std::string(marker) + ".saved").c_str());
      }
    }
  }

  ~LogMarkers() override {
    for (const char* marker : kMarkers) {
      unlink(marker);
      rmdir(marker);
    }
    for (const std::string& marker : present_) {
      rename((marker + ".saved").c_str(), marker.c_str());
    }
    close(lock_);
  }

  static void create(const char* marker) {
    const int fd = open(marker, O_WRONLY | O_CREAT, 0644);
    ASSERT_GE(fd, 0) << marker;
    close(fd);
  }

 private:
  int lock_;
  std::vector<std::string> present_;
};

TEST_F(LogMarkers, NoMarkerMeansSilenceAnnouncedAllTheSame) {
  EXPECT_EQ(written_by([] { g_debug_init(); }), "[g_debug_init]: USING DEBUGLEVEL : 99\n");
  EXPECT_EQ(g_debug_get_level(), 99);
}

TEST_F(LogMarkers, EachMarkerChoosesItsLevelAndTheMoreVerboseWins) {
  for (int level = 4; level >= 0; --level) {
    create(kMarkers[level]);
    EXPECT_EQ(written_by([] { g_debug_init(); }),
              "[g_debug_init]: USING DEBUGLEVEL : " + std::to_string(level) + "\n");
    EXPECT_EQ(g_debug_get_level(), level);
  }
}

TEST_F(LogMarkers, EachMarkerAloneChoosesItsLevel) {
  for (int level = 0; level <= 4; ++level) {
    create(kMarkers[level]);
    written_by([] { g_debug_init(); });
    EXPECT_EQ(g_debug_get_level(), level);
    unlink(kMarkers[level]);
  }
}

TEST_F(LogMarkers, ADirectoryIsNoMarker) {
  ASSERT_EQ(mkdir("/tmp/vk_debug", 0755), 0);
  create("/tmp/vk_warning");
  written_by([] { g_debug_init(); });
  EXPECT_EQ(g_debug_get_level(), 3);
}

TEST_F(LogMarkers, ALinkToARegularFileIsAMarker) {
  create("/tmp/vk_error");
  ASSERT_EQ(symlink("/tmp/vk_error", "/tmp/vk_message"), 0);
  written_by([] { g_debug_init(); });
  EXPECT_EQ(g_debug_get_level(), 1);
}

TEST_F(LogMarkers, TheAnnouncementGoesToTheHandler) {
  Received received;
  g_debug_set_handler(receive, &received);
  EXPECT_EQ(written_by([] { g_debug_init(); }), "");
  ASSERT_EQ(received.texts.size(), 1u);
  EXPECT_EQ(received.texts[0], "[g_debug_init]: USING DEBUGLEVEL : 99\n");
}

}  // namespace
