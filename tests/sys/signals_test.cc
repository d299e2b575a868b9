// A signal without SA_RESTART ends each call that waits, as the system's own calls. Named
// pipes wait when they are opened, read and written.
//
// SPDX-License-Identifier: MIT

#include <groundwork/groundwork.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/interruptions.h"
#include "support/log_capture.h"
#include "support/temporary_directory.h"

using test::Interruptions;
using test::LogCapture;
using test::TemporaryDirectory;
using test::warning_line;
using Lines = std::vector<std::string>;

namespace {

class InterruptedWait : public testing::Test {
 protected:
  InterruptedWait() : path(dir / "pipe") { EXPECT_EQ(mkfifo(path.c_str(), 0600), 0); }
  ~InterruptedWait() override {
    if (end_ != -1) close(end_);
  }

  // From now on opening does not wait.
  void open_other_end() { end_ = open(path.c_str(), O_RDWR | O_CLOEXEC); }
  void fill() {
    open_other_end();
    const std::string text(65536, 'x');
    EXPECT_EQ(write(end_, text.data(), text.size()), 65536);
  }
  void put(const std::string& text) {
    EXPECT_EQ(write(end_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  Lines not_opened() const {
    return {
        warning_line("g_file", "can't open file '" + path + "' - Interrupted system call")};
  }

  TemporaryDirectory dir;
  std::string path;
  LogCapture log;

 private:
  int end_ = -1;
};

TEST_F(InterruptedWait, OfOpeningFailsForEachMode) {
  for (const int mode : {0, 1, 2}) {
    const Interruptions signals;
    EXPECT_EQ(g_file_open(path.c_str(), mode), nullptr) << mode;
    EXPECT_EQ(log.take(), not_opened());
  }
}

TEST_F(InterruptedWait, OfReadingGivesMinusOneWithoutAMessage) {
  open_other_end();
  GFile* const file = g_file_open(path.c_str(), 0);
  char byte = 'a';
  {
    const Interruptions signals;
    EXPECT_EQ(g_file_read(file, &byte, 1), -1);
    EXPECT_EQ(errno, EINTR);
  }
  EXPECT_EQ(log.take(), Lines{});
  put("b");
  EXPECT_EQ(g_file_read(file, &byte, 1), 1);
  EXPECT_EQ(byte, 'b');
  g_file_close(file);
}

TEST_F(InterruptedWait, OfWritingIsLogged) {
  fill();
  GFile* const file = g_file_open(path.c_str(), 1);
  {
    const Interruptions signals;
    EXPECT_EQ(g_file_write(file, "a", 1), -1);
    EXPECT_EQ(errno, EINTR);
  }
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "Interrupted system call - " +
                                                         std::to_string(EINTR) + ".")});
  g_file_close(file);
}

TEST_F(InterruptedWait, OfReadingAWholeFileGivesNull) {
  int64_t size = -7;
  const Interruptions signals;
  EXPECT_EQ(g_file_read_buf(path.c_str(), &size), nullptr);
  EXPECT_EQ(size, -7);
  EXPECT_EQ(log.take(), not_opened());
}

TEST_F(InterruptedWait, OfWritingAWholeFileFails) {
  {
    const Interruptions signals;
    EXPECT_EQ(g_file_write_buf(path.c_str(), "a", 1), -1);
    EXPECT_EQ(log.take(), not_opened());
  }
  fill();
  const Interruptions signals;
  EXPECT_EQ(g_file_write_buf(path.c_str(), "a", 1), -1);
  EXPECT_EQ(log.take().size(), 2u);
}

TEST_F(InterruptedWait, OfMappingGivesNull) {
  const Interruptions signals;
  EXPECT_EQ(g_file_map(path.c_str(), 0, 1, 0, nullptr), nullptr);
  Lines expected = not_opened();
  expected.push_back(warning_line("g_file", "can't open '" + path + "' for file map."));
  EXPECT_EQ(log.take(), expected);
}

// Kept: only descriptor 0 is a failure.
TEST_F(InterruptedWait, OfTouchingCountsAsSuccess) {
  const Interruptions signals;
  EXPECT_EQ(g_file_touch(path.c_str()), 0);
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(InterruptedWait, OfCopyingFailsWhereAFileIsOpened) {
  const std::string copy = dir / "copy";
  {
    const Interruptions signals;
    EXPECT_EQ(g_file_copy(path.c_str(), copy.c_str()), -1);
    EXPECT_NE(access(copy.c_str(), F_OK), 0);
  }
  dir.write("from", "text");
  const Interruptions signals;
  EXPECT_EQ(g_file_copy((dir / "from").c_str(), path.c_str()), -1);
}

// Kept: like every failed read, as the end of the file.
TEST_F(InterruptedWait, OfReadingInACopyEndsTheCopy) {
  open_other_end();
  put("text");
  const std::string copy = dir / "copy";
  const Interruptions signals;
  EXPECT_EQ(g_file_copy(path.c_str(), copy.c_str()), 0);
  EXPECT_EQ(test::read_file(copy), "text");
}

TEST_F(InterruptedWait, OfWritingInACopyFailsIt) {
  fill();
  dir.write("from", "text");
  const Interruptions signals;
  EXPECT_EQ(g_file_copy((dir / "from").c_str(), path.c_str()), -1);
  EXPECT_EQ(log.take().size(), 2u);
}

}  // namespace
