// Locks hold between processes, so each test asks from a forked child.
//
// SPDX-License-Identifier: MIT

#include <groundwork/file.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/log_capture.h"
#include "support/temporary_directory.h"

using test::check_line;
using test::LogCapture;
using test::TemporaryDirectory;
using Lines = std::vector<std::string>;

namespace {

using Lock = int (*)(GFile*);

// The result of `lock` in another process, on a file that it opens with `mode`: 0, the
// errno of a refusal, or 255 if it returned neither 0 nor -1.
int ask_elsewhere(const std::string& path, int mode, Lock lock) {
  const pid_t child = fork();
  if (child == 0) {
    GFile* const file = g_file_open(path.c_str(), mode);
    const int result = file != nullptr ? lock(file) : -2;
    _exit(result == 0 ? 0 : result == -1 ? errno : 255);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  return WEXITSTATUS(status);
}

bool refused(int error) {
  return error == EAGAIN || error == EACCES;
}

class FileLock : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = dir_.write("f", "abc");
    reader_ = g_file_open(path_.c_str(), 0);
    writer_ = g_file_open(path_.c_str(), 1);
    ASSERT_NE(reader_, nullptr);
    ASSERT_NE(writer_, nullptr);
  }
  void TearDown() override {
    if (reader_ != nullptr) g_file_close(reader_);
    if (writer_ != nullptr) g_file_close(writer_);
  }
  TemporaryDirectory dir_;
  std::string path_;
  GFile* reader_ = nullptr;
  GFile* writer_ = nullptr;
};

TEST_F(FileLock, NullReportsTheCheck) {
  LogCapture log;
  for (const Lock lock : {g_file_lock_read, g_file_lock_write, g_file_unlock}) {
    EXPECT_EQ(lock(nullptr), -1);
    EXPECT_EQ(log.take(), Lines{check_line("g_file", "file != NULL")});
  }
}

TEST_F(FileLock, AWriteLockRefusesEveryOtherProcessImmediatelyAndSilently) {
  LogCapture log;
  ASSERT_EQ(g_file_lock_write(writer_), 0);
  EXPECT_TRUE(refused(ask_elsewhere(path_, 1, g_file_lock_write)));
  EXPECT_TRUE(refused(ask_elsewhere(path_, 0, g_file_lock_read)));
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(FileLock, AReadLockIsShared) {
  ASSERT_EQ(g_file_lock_read(reader_), 0);
  EXPECT_EQ(ask_elsewhere(path_, 0, g_file_lock_read), 0);
  EXPECT_TRUE(refused(ask_elsewhere(path_, 1, g_file_lock_write)));
}

TEST_F(FileLock, UnlockLetsOthersIn) {
  ASSERT_EQ(g_file_lock_write(writer_), 0);
  ASSERT_EQ(g_file_unlock(writer_), 0);
  EXPECT_EQ(ask_elsewhere(path_, 1, g_file_lock_write), 0);
}

TEST_F(FileLock, CoversTheWholeFileFromItsStartWhateverTheOffset) {
  ASSERT_EQ(g_file_seek(writer_, 3, SEEK_SET), 3);
  ASSERT_EQ(g_file_lock_write(writer_), 0);
  const auto held_at = [](GFile* file) {
    int descriptor = *reinterpret_cast<int*>(file);
    for (const off64_t start : {off64_t{0}, off64_t{2}, off64_t{5} << 30}) {
      struct flock64 lock = {};
      lock.l_type = F_RDLCK;
      lock.l_whence = SEEK_SET;
      lock.l_start = start;
      lock.l_len = 1;
      if (fcntl(descriptor, F_GETLK64, &lock) != 0) return -1;
      if (lock.l_type != F_WRLCK || lock.l_start != 0 || lock.l_len != 0) return -1;
    }
    return 0;
  };
  EXPECT_EQ(ask_elsewhere(path_, 0, held_at), 0);
}

TEST_F(FileLock, HandlesOfOneProcessNeverConflict) {
  EXPECT_EQ(g_file_lock_read(reader_), 0);
  EXPECT_EQ(g_file_lock_write(writer_), 0);
  EXPECT_EQ(g_file_lock_read(reader_), 0);
}

TEST_F(FileLock, ClosingAnyHandleOfTheFileDropsTheLock) {
  ASSERT_EQ(g_file_lock_write(writer_), 0);
  g_file_close(reader_);
  reader_ = nullptr;
  EXPECT_EQ(ask_elsewhere(path_, 1, g_file_lock_write), 0);
}

TEST_F(FileLock, NeedsADescriptorOpenForItsKind) {
  LogCapture log;
  EXPECT_EQ(g_file_lock_write(reader_), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(g_file_lock_read(writer_), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(log.take(), Lines{});
}

}  // namespace
