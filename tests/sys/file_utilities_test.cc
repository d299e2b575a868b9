// SPDX-License-Identifier: MIT

#include <groundwork/file.h>
#include <groundwork/log.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "support/descriptors.h"
#include "support/log_capture.h"
#include "support/next_function.h"
#include "support/temporary_directory.h"

using test::AllocationFaults;
using test::check_line;
using test::LogCapture;
using test::lowest_free_descriptor;
using test::TemporaryDirectory;
using test::warning_line;
using Lines = std::vector<std::string>;

namespace {

// The counts that read() was asked for and gave, while watched.
struct ReadCall {
  size_t wanted;
  ssize_t given;
  bool operator==(const ReadCall&) const = default;
};
std::vector<ReadCall> reads;
bool watch_reads = false;
int failing_read = 0;   // this call of read() fails; 0 for none
int failing_write = 0;  // this call of write() is short by one byte

}  // namespace

// The library's calls come here: the test program's names go before the C library's.
extern "C" ssize_t read(int descriptor, void* buf, size_t size) {
  static const auto real = test::next_function<decltype(read)>("read");
  if (!watch_reads) return real(descriptor, buf, size);
  if (failing_read != 0 && --failing_read == 0) {
    errno = EIO;
    return -1;
  }
  const ssize_t given = real(descriptor, buf, size);
  reads.push_back({size, given});
  return given;
}

extern "C" ssize_t write(int descriptor, const void* buf, size_t size) {
  static const auto real = test::next_function<decltype(write)>("write");
  if (failing_write != 0 && --failing_write == 0) --size;
  return real(descriptor, buf, size);
}

namespace {

std::string pattern(size_t size) {
  std::string text(size, '\0');
  for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 7 + i / 251);
  return text;
}

TEST(FileRemove, RemovesAFileAndALinkButNotItsTarget) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  const std::string link = dir / "link";
  ASSERT_EQ(symlink("f", link.c_str()), 0);
  LogCapture log;
  EXPECT_EQ(g_file_remove(link.c_str()), 0);
  EXPECT_EQ(access(path.c_str(), F_OK), 0);
  EXPECT_EQ(g_file_remove(path.c_str()), 0);
  EXPECT_EQ(access(path.c_str(), F_OK), -1);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FileRemove, AFailureIsLoggedWithTheSystemsTextFirst) {
  TemporaryDirectory dir;
  const std::string path = dir / "name";
  LogCapture log;
  EXPECT_EQ(g_file_remove(path.c_str()), -1);
  EXPECT_EQ(log.take(),
            Lines{warning_line("g_file", "No such file or directory - " + path + ".")});
  EXPECT_EQ(g_file_remove(dir.path().c_str()), -1);
  EXPECT_EQ(log.take(),
            Lines{warning_line("g_file", "Is a directory - " + dir.path() + ".")});
}

TEST(FileRename, ReplacesAnExistingFile) {
  TemporaryDirectory dir;
  const std::string from = dir.write("from", "abc");
  const std::string to = dir.write("to", "longer");
  LogCapture log;
  EXPECT_EQ(g_file_rename(from.c_str(), to.c_str()), 0);
  EXPECT_EQ(test::read_file(to), "abc");
  EXPECT_EQ(access(from.c_str(), F_OK), -1);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FileRename, AFailureIsLoggedWithBothPaths) {
  TemporaryDirectory dir;
  const std::string from = dir / "from";
  const std::string to = dir / "to";
  LogCapture log;
  EXPECT_EQ(g_file_rename(from.c_str(), to.c_str()), -1);
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "No such file or directory - (" +
                                                         from + " -> " + to + ").")});
}

TEST(FileTouch, NullReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_file_touch(nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "filename != NULL")});
}

TEST(FileTouch, CreatesAnEmptyFile) {
  TemporaryDirectory dir;
  const std::string path = dir / "new";
  const int expected = lowest_free_descriptor();
  const mode_t previous = umask(0);
  EXPECT_EQ(g_file_touch(path.c_str()), 0);
  umask(previous);
  struct stat64 status;
  ASSERT_EQ(stat64(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_size, 0);
  EXPECT_EQ(status.st_mode & 07777u, 0644u);
  EXPECT_EQ(lowest_free_descriptor(), expected);
}

TEST(FileTouch, KeepsContentAndTimesOfAnExistingFile) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  const struct timespec long_ago[2] = {{1000000, 5}, {1000001, 6}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), long_ago, 0), 0);
  EXPECT_EQ(g_file_touch(path.c_str()), 0);
  struct stat64 status;
  ASSERT_EQ(stat64(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mtim.tv_sec, 1000001);
  EXPECT_EQ(status.st_mtim.tv_nsec, 6);
  EXPECT_EQ(test::read_file(path), "abc");
}

TEST(FileTouch, AFailureToCreateIsSuccessAndSilent) {
  TemporaryDirectory dir;
  LogCapture log;
  EXPECT_EQ(g_file_touch((dir / "missing/file").c_str()), 0);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FileTouch, DescriptorZeroIsAFailureAndIsClosed) {
  TemporaryDirectory dir;
  const std::string path = dir / "new";
  const pid_t child = fork();
  if (child == 0) {
    close(0);
    const int result = g_file_touch(path.c_str());
    _exit(result == -1 && fcntl(0, F_GETFD) == -1 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(access(path.c_str(), F_OK), 0);
}

TEST(FileCopy, BadArgumentsReportTheFirstCheckOnly) {
  LogCapture log;
  EXPECT_EQ(g_file_copy(nullptr, nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "old_path != NULL")});
  EXPECT_EQ(g_file_copy("/etc/passwd", nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "new_path != NULL")});
}

TEST(FileCopy, CopiesEveryByte) {
  TemporaryDirectory dir;
  for (const size_t size : {0u, 1u, 8191u, 8192u, 8193u, 16384u, 100000u}) {
    const std::string from = dir.write("from", pattern(size));
    const std::string to = dir / "to";
    EXPECT_EQ(g_file_copy(from.c_str(), to.c_str()), 0);
    EXPECT_EQ(test::read_file(to), pattern(size)) << size;
  }
}

TEST(FileCopy, ReadsPiecesOf8192BytesUntilTheEnd) {
  TemporaryDirectory dir;
  const std::string from = dir.write("from", pattern(20000));
  reads.clear();
  watch_reads = true;
  EXPECT_EQ(g_file_copy(from.c_str(), (dir / "to").c_str()), 0);
  watch_reads = false;
  EXPECT_EQ(reads,
            (std::vector<ReadCall>{{8192, 8192}, {8192, 8192}, {8192, 3616}, {8192, 0}}));
}

TEST(FileCopy, LeavesNothingOpen) {
  TemporaryDirectory dir;
  const std::string from = dir.write("from", "abc");
  const int before = test::count_open_descriptors();
  EXPECT_EQ(g_file_copy(from.c_str(), (dir / "to").c_str()), 0);
  EXPECT_EQ(test::count_open_descriptors(), before);
}

TEST(FileCopy, AllocatesNothing) {
  TemporaryDirectory dir;
  const std::string from = dir.write("from", pattern(20000));
  const std::string to = dir / "to";
  AllocationFaults faults(0);
  EXPECT_EQ(g_file_copy(from.c_str(), to.c_str()), 0);
  faults.disarm();
  EXPECT_EQ(faults.calls(), 0);
}

TEST(FileCopy, EmptiesALongerDestinationFirst) {
  TemporaryDirectory dir;
  const std::string from = dir.write("from", "abc");
  const std::string to = dir.write("to", "much longer than that");
  EXPECT_EQ(g_file_copy(from.c_str(), to.c_str()), 0);
  EXPECT_EQ(test::read_file(to), "abc");
}

TEST(FileCopy, TheCopyHasPermissionsOfItsOwn) {
  TemporaryDirectory dir;
  const std::string from = dir.write("from", "abc");
  ASSERT_EQ(chmod(from.c_str(), 0700), 0);
  const mode_t previous = umask(0);
  EXPECT_EQ(g_file_copy(from.c_str(), (dir / "to").c_str()), 0);
  umask(previous);
  struct stat64 status;
  ASSERT_EQ(stat64((dir / "to").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0644u);
}

TEST(FileCopy, AMissingSourceIsReportedAndLeavesTheDestination) {
  TemporaryDirectory dir;
  const std::string from = dir / "from";
  const std::string to = dir.write("to", "abc");
  LogCapture log;
  EXPECT_EQ(g_file_copy(from.c_str(), to.c_str()), -1);
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "can't open file '" + from +
                                                         "' - No such file or directory")});
  EXPECT_EQ(test::read_file(to), "abc");
}

TEST(FileCopy, ADestinationThatCannotBeOpenedIsReportedAndClosesTheSource) {
  TemporaryDirectory dir;
  const std::string from = dir.write("from", "abc");
  const std::string to = dir / "missing/to";
  const int expected = lowest_free_descriptor();
  LogCapture log;
  AllocationFaults faults(0);
  EXPECT_EQ(g_file_copy(from.c_str(), to.c_str()), -1);
  faults.disarm();
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "can't open file '" + to +
                                                         "' - No such file or directory")});
  EXPECT_EQ(lowest_free_descriptor(), expected);
}

TEST(FileCopy, AReadErrorEndsTheCopySilentlyWithSuccess) {
  TemporaryDirectory dir;
  const std::string from = dir.write("from", pattern(20000));
  const std::string to = dir / "to";
  LogCapture log;
  failing_read = 2;
  watch_reads = true;
  EXPECT_EQ(g_file_copy(from.c_str(), to.c_str()), 0);
  watch_reads = false;
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_EQ(test::read_file(to), pattern(20000).substr(0, 8192));
  EXPECT_EQ(g_file_copy(dir.path().c_str(), to.c_str()), 0);  // a directory cannot be read
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_EQ(test::read_file(to), "");
}

TEST(FileCopy, AFullDiskIsReportedTwice) {
  TemporaryDirectory dir;
  const std::string from = dir.write("from", "abc");
  const int expected = lowest_free_descriptor();
  LogCapture log;
  EXPECT_EQ(g_file_copy(from.c_str(), "/dev/full"), -1);
  EXPECT_EQ(log.take(), (Lines{warning_line("g_file", "No space left on device - " +
                                                          std::to_string(ENOSPC) + "."),
                               warning_line("g_file", "failed to write file from '" + from +
                                                          "' to '/dev/full'.")}));
  EXPECT_EQ(lowest_free_descriptor(), expected);
}

TEST(FileCopy, AShortWriteIsReported) {
  TemporaryDirectory dir;
  const std::string from = dir.write("from", "abc");
  const std::string to = dir / "to";
  const int expected = lowest_free_descriptor();
  LogCapture log;
  failing_write = 1;
  EXPECT_EQ(g_file_copy(from.c_str(), to.c_str()), -1);
  failing_write = 0;
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "failed to write file from '" + from +
                                                         "' to '" + to + "'.")});
  EXPECT_EQ(lowest_free_descriptor(), expected);
}

TEST(FileCopy, OntoItselfEmptiesTheFile) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  EXPECT_EQ(g_file_copy(path.c_str(), path.c_str()), 0);
  EXPECT_EQ(test::read_file(path), "");
}

}  // namespace
