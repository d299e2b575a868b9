// SPDX-License-Identifier: MIT

#include <groundwork/file.h>
#include <groundwork/file_map.h>
#include <groundwork/log.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "support/descriptors.h"
#include "support/ended_thread.h"
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

struct SeekCall {
  off64_t offset;
  int whence;
  bool operator==(const SeekCall&) const = default;
};
std::vector<SeekCall> seeks;
bool watch_seeks = false;
bool shorten_reads = false;  // by one byte

}  // namespace

// The library's calls come here: the test program's names go before the C library's.
extern "C" off64_t lseek64(int descriptor, off64_t offset, int whence) noexcept {
  static const auto real = test::next_function<off64_t(int, off64_t, int)>("lseek64");
  if (watch_seeks) seeks.push_back({offset, whence});
  return real(descriptor, offset, whence);
}

extern "C" ssize_t read(int descriptor, void* buf, size_t size) {
  static const auto real = test::next_function<decltype(read)>("read");
  return real(descriptor, buf, shorten_reads && size > 0 ? size - 1 : size);
}

namespace {

constexpr int64_t kGiB = int64_t{1} << 30;

struct CloseFile {
  void operator()(GFile* file) const { g_file_close(file); }
};
using File = std::unique_ptr<GFile, CloseFile>;

struct FreeBlock {
  void operator()(void* block) const { std::free(block); }
};
using Text = std::unique_ptr<char, FreeBlock>;

File open_file(const std::string& path, int mode) {
  return File(g_file_open(path.c_str(), mode));
}

// The handle is a cell that holds the descriptor.
int descriptor_of(const File& file) {
  int descriptor;
  std::memcpy(&descriptor, file.get(), sizeof descriptor);
  return descriptor;
}

// A file of a size that no disk needs to hold.
void make_sparse(const std::string& path, int64_t size) {
  const int descriptor = open64(path.c_str(), O_WRONLY | O_CREAT, 0644);
  ASSERT_NE(descriptor, -1);
  ASSERT_EQ(ftruncate64(descriptor, size), 0);
  close(descriptor);
}

TEST(FileOpen, NullNameReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_file_open(nullptr, 0), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "filename != NULL")});
}

TEST(FileOpen, TheHandleIsACellHoldingTheDescriptor) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  const int expected = lowest_free_descriptor();
  AllocationFaults faults(0);
  const File file = open_file(path, 0);
  faults.disarm();
  EXPECT_EQ(faults.calls(), 1);
  EXPECT_EQ(test::allocation_size(1), sizeof(int));
  EXPECT_EQ(descriptor_of(file), expected);
}

TEST(FileOpen, ModeZeroReadsOnly) {
  TemporaryDirectory dir;
  const File file = open_file(dir.write("f", "abc"), 0);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(fcntl(descriptor_of(file), F_GETFL) & O_ACCMODE, O_RDONLY);
}

TEST(FileOpen, ModeOneWritesAnExistingFileFromItsStartAndKeepsItsContent) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  File file = open_file(path, 1);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(fcntl(descriptor_of(file), F_GETFL) & O_ACCMODE, O_WRONLY);
  EXPECT_EQ(g_file_write(file.get(), "X", 1), 1);
  file.reset();
  EXPECT_EQ(test::read_file(path), "Xbc");
}

TEST(FileOpen, ModeOneAloneSeeksToTheStart) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  for (const int mode : {0, 1, 2, 3}) {
    seeks.clear();
    watch_seeks = true;
    const File file = open_file(path, mode);
    watch_seeks = false;
    EXPECT_EQ(seeks,
              mode == 1 ? std::vector<SeekCall>({{0, SEEK_SET}}) : std::vector<SeekCall>{});
  }
}

TEST(FileOpen, ModeOneCreatesNothing) {
  TemporaryDirectory dir;
  LogCapture log;
  const std::string path = dir / "missing";
  EXPECT_EQ(g_file_open(path.c_str(), 1), nullptr);
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "can't open file '" + path +
                                                         "' - No such file or directory")});
  EXPECT_EQ(access(path.c_str(), F_OK), -1);
}

TEST(FileOpen, ModeTwoCreatesAFileForItsOwnerToWriteAndOthersToRead) {
  TemporaryDirectory dir;
  const mode_t previous = umask(0);
  const File file = open_file(dir / "new", 2);
  umask(previous);
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(fcntl(descriptor_of(file), F_GETFL) & O_ACCMODE, O_WRONLY);
  struct stat64 status;
  ASSERT_EQ(fstat64(descriptor_of(file), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0644u);
}

TEST(FileOpen, ModeTwoEmptiesAnExistingFile) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  const File file = open_file(path, 2);
  EXPECT_EQ(g_file_size(path.c_str()), 0);
}

TEST(FileOpen, AnyOtherModeReadsOnlyAndCreatesNothing) {
  TemporaryDirectory dir;
  LogCapture log;
  const std::string path = dir.write("f", "abc");
  for (const int mode : {-1, 3, 4, 1000, INT32_MIN, INT32_MAX}) {
    const File file = open_file(path, mode);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(fcntl(descriptor_of(file), F_GETFL) & O_ACCMODE, O_RDONLY);
    EXPECT_EQ(open_file(dir / "missing", mode), nullptr);
  }
  EXPECT_EQ(g_file_size(path.c_str()), 3);
}

TEST(FileOpen, DescriptorsDoNotSurviveAnExec) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  for (const int mode : {0, 1, 2, 3}) {
    const File file = open_file(path, mode);
    EXPECT_NE(fcntl(descriptor_of(file), F_GETFD) & FD_CLOEXEC, 0) << mode;
  }
}

TEST(FileOpen, ExhaustedHeapIsReportedAndOpensNothing) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  LogCapture log;
  {
    AllocationFaults faults(1);
    EXPECT_EQ(g_file_open(path.c_str(), 2), nullptr);
  }
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "failed to allocate 4 bytes.")});
  EXPECT_EQ(test::read_file(path), "abc");
}

TEST(FileOpen, AFailureFreesTheCell) {
  LogCapture log;
  AllocationFaults faults(0);
  EXPECT_EQ(g_file_open("/missing/file", 0), nullptr);
  faults.disarm();
  log.take();
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST(FileClose, NullReportsTheCheck) {
  LogCapture log;
  g_file_close(nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "file != NULL")});
}

TEST(FileClose, ClosesTheDescriptorAndFreesTheCell) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  const int expected = lowest_free_descriptor();
  AllocationFaults faults(0);
  g_file_close(g_file_open(path.c_str(), 0));
  faults.disarm();
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(fcntl(expected, F_GETFD), -1);
}

TEST(FileRead, BadArgumentsReportTheFirstCheckOnly) {
  TemporaryDirectory dir;
  const File file = open_file(dir.write("f", "abc"), 0);
  LogCapture log;
  EXPECT_EQ(g_file_read(nullptr, nullptr, 1), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "file != NULL")});
  EXPECT_EQ(g_file_read(file.get(), nullptr, 1), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "buf != NULL")});
}

TEST(FileRead, GivesTheBytesThatThereAre) {
  TemporaryDirectory dir;
  const File file = open_file(dir.write("f", "abc"), 0);
  char buf[8] = {};
  EXPECT_EQ(g_file_read(file.get(), buf, 2), 2);
  EXPECT_EQ(g_file_read(file.get(), buf + 2, 6), 1);
  EXPECT_STREQ(buf, "abc");
  EXPECT_EQ(g_file_read(file.get(), buf, 8), 0);
}

TEST(FileRead, UsesTheLowHalfOfTheLength) {
  TemporaryDirectory dir;
  const File file = open_file(dir.write("f", "abcdef"), 0);
  char buf[8] = {};
  EXPECT_EQ(g_file_read(file.get(), buf, (int64_t{7} << 32) + 2), 2);
  EXPECT_STREQ(buf, "ab");
  EXPECT_EQ(g_file_read(file.get(), buf, int64_t{1} << 32), 0);
}

TEST(FileRead, AnErrorIsMinusOneWithoutAMessage) {
  TemporaryDirectory dir;
  const File file = open_file(dir / "new", 2);
  LogCapture log;
  char buf[8];
  errno = 0;
  EXPECT_EQ(g_file_read(file.get(), buf, 8), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FileWrite, BadArgumentsReportTheFirstCheckOnly) {
  TemporaryDirectory dir;
  const File file = open_file(dir / "new", 2);
  LogCapture log;
  EXPECT_EQ(g_file_write(nullptr, nullptr, 1), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "file != NULL")});
  EXPECT_EQ(g_file_write(file.get(), nullptr, 1), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "buf != NULL")});
}

TEST(FileWrite, UsesTheLowHalfOfTheLength) {
  TemporaryDirectory dir;
  const File file = open_file(dir / "new", 2);
  EXPECT_EQ(g_file_write(file.get(), "abcdef", (int64_t{-5} * (int64_t{1} << 32)) + 2), 2);
  EXPECT_EQ(g_file_write(file.get(), "abcdef", int64_t{1} << 32), 0);
  EXPECT_EQ(test::read_file(dir / "new"), "ab");
}

TEST(FileWrite, AnErrorIsLoggedWithItsTextAndNumber) {
  TemporaryDirectory dir;
  const File file = open_file(dir.write("f", "abc"), 0);
  LogCapture log;
  errno = 0;
  EXPECT_EQ(g_file_write(file.get(), "x", 1), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "Bad file descriptor - " +
                                                         std::to_string(EBADF) + ".")});
}

TEST(FileWrite, AFullDiskIsLogged) {
  const File file = open_file("/dev/full", 1);
  ASSERT_NE(file, nullptr);
  LogCapture log;
  EXPECT_EQ(g_file_write(file.get(), "x", 1), -1);
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "No space left on device - " +
                                                         std::to_string(ENOSPC) + ".")});
}

TEST(FileWrite, AShortWriteIsReturnedAsItIs) {
  TemporaryDirectory dir;
  const std::string path = dir / "fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
  const File file = open_file(path, 1);
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(fcntl(descriptor_of(file), F_SETFL, O_NONBLOCK), 0);
  const std::string much(1 << 20, 'x');
  LogCapture log;
  const int64_t written = g_file_write(file.get(), much.data(), 1 << 20);
  EXPECT_GT(written, 0);
  EXPECT_LT(written, 1 << 20);
  EXPECT_EQ(log.take(), Lines{});
  close(reader);
}

TEST(FileSeek, NullReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_file_seek(nullptr, 0, SEEK_SET), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "file != NULL")});
}

TEST(FileSeek, MovesFromStartHereAndEnd) {
  TemporaryDirectory dir;
  const File file = open_file(dir.write("f", "abcdef"), 0);
  EXPECT_EQ(g_file_seek(file.get(), 2, SEEK_SET), 2);
  EXPECT_EQ(g_file_seek(file.get(), 1, SEEK_CUR), 3);
  EXPECT_EQ(g_file_seek(file.get(), -1, SEEK_END), 5);
  char c;
  EXPECT_EQ(g_file_read(file.get(), &c, 1), 1);
  EXPECT_EQ(c, 'f');
}

TEST(FileSeek, ABadOffsetIsMinusOneWithoutAMessage) {
  TemporaryDirectory dir;
  const File file = open_file(dir.write("f", "abc"), 0);
  LogCapture log;
  EXPECT_EQ(g_file_seek(file.get(), -1, SEEK_SET), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(g_file_seek(file.get(), 0, 1000), -1);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FileTruncate, NullReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_file_truncate(nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "file != NULL")});
}

TEST(FileTruncate, CutsAtTheOffset) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abcdef");
  const File file = open_file(path, 1);
  ASSERT_EQ(g_file_seek(file.get(), 4, SEEK_SET), 4);
  EXPECT_EQ(g_file_truncate(file.get()), 0);
  EXPECT_EQ(test::read_file(path), "abcd");
  EXPECT_EQ(g_file_seek(file.get(), 0, SEEK_CUR), 4);
}

TEST(FileTruncate, ExtendsWithZeros) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "a");
  const File file = open_file(path, 1);
  g_file_seek(file.get(), 3, SEEK_SET);
  EXPECT_EQ(g_file_truncate(file.get()), 0);
  EXPECT_EQ(test::read_file(path), std::string("a\0\0", 3));
}

TEST(FileTruncate, AReadOnlyFileIsMinusOneWithoutAMessage) {
  TemporaryDirectory dir;
  const File file = open_file(dir.write("f", "abc"), 0);
  LogCapture log;
  EXPECT_EQ(g_file_truncate(file.get()), -1);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FileSize, NullReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_file_size(nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "filename != NULL")});
}

TEST(FileSize, TakesAnyTypeOfFileAndFollowsLinks) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  const std::string link = dir / "link";
  ASSERT_EQ(symlink("f", link.c_str()), 0);
  struct stat64 status;
  ASSERT_EQ(stat64(dir.path().c_str(), &status), 0);
  LogCapture log;
  EXPECT_EQ(g_file_size(path.c_str()), 3);
  EXPECT_EQ(g_file_size(link.c_str()), 3);
  EXPECT_EQ(g_file_size(dir.path().c_str()), status.st_size);
  EXPECT_EQ(g_file_size((dir / "missing").c_str()), -1);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FileExist, NullReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_file_exist(nullptr), 0);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "filename != NULL")});
}

TEST(FileExist, OnlyRegularFilesAndLinksToThemDo) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "");
  const std::string link = dir / "link";
  const std::string dangling = dir / "dangling";
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(symlink("f", link.c_str()), 0);
  ASSERT_EQ(symlink("nothing", dangling.c_str()), 0);
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  LogCapture log;
  EXPECT_EQ(g_file_exist(path.c_str()), 1);
  EXPECT_EQ(g_file_exist(link.c_str()), 1);
  EXPECT_EQ(g_file_exist(dangling.c_str()), 0);
  EXPECT_EQ(g_file_exist(fifo.c_str()), 0);
  EXPECT_EQ(g_file_exist(dir.path().c_str()), 0);
  EXPECT_EQ(g_file_exist("/dev/null"), 0);
  EXPECT_EQ(g_file_exist((dir / "missing").c_str()), 0);
  EXPECT_EQ(g_file_exist(""), 0);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FileExistPath, NullNameReportsTheCheck) {
  LogCapture log;
  EXPECT_EQ(g_file_exist_path("/etc", nullptr), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "filename != NULL")});
}

TEST(FileExistPath, JoinsWithOneSlashWhateverTheDirectoryEndsIn) {
  TemporaryDirectory dir;
  dir.write("f", "");
  EXPECT_EQ(Text(g_file_exist_path(dir.path().c_str(), "f")).get(), dir / "f");
  const std::string with_slash = dir.path() + "/";
  EXPECT_EQ(Text(g_file_exist_path(with_slash.c_str(), "f")).get(), with_slash + "/f");
}

TEST(FileExistPath, AnEmptyDirectoryIsTheRoot) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "");
  const Text found(g_file_exist_path("", path.c_str() + 1));
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found.get(), path);
}

TEST(FileExistPath, AnAbsoluteNameOrOneWithoutADirectoryIsUsedAsItIs) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "");
  const Text ignoring(g_file_exist_path("/x", path.c_str()));
  ASSERT_NE(ignoring, nullptr);
  EXPECT_EQ(ignoring.get(), path);
  EXPECT_NE(ignoring.get(), path.c_str());
  const Text alone(g_file_exist_path(nullptr, path.c_str()));
  ASSERT_NE(alone, nullptr);
  EXPECT_EQ(alone.get(), path);
}

TEST(FileExistPath, WhatIsNoRegularFileIsNull) {
  TemporaryDirectory dir;
  LogCapture log;
  AllocationFaults faults(0);
  EXPECT_EQ(g_file_exist_path(dir.path().c_str(), "missing"), nullptr);
  EXPECT_EQ(g_file_exist_path(nullptr, dir.path().c_str()), nullptr);
  faults.disarm();
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FileExistPath, SurvivesAnExhaustedHeap) {
  TemporaryDirectory dir;
  dir.write("f", "");
  test::for_each_failed_allocation([&](AllocationFaults& faults) {
    char* const path = g_file_exist_path(dir.path().c_str(), "f");
    faults.disarm();
    EXPECT_EQ(path == nullptr, faults.failures() != 0);
    std::free(path);
  });
}

TEST(FileReadBuf, BadArgumentsReportTheFirstCheckOnly) {
  LogCapture log;
  EXPECT_EQ(g_file_read_buf(nullptr, nullptr), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "filename != NULL")});
  EXPECT_EQ(g_file_read_buf("/etc/passwd", nullptr), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "len != NULL")});
}

TEST(FileReadBuf, GivesTheContentAndAFinalNul) {
  TemporaryDirectory dir;
  const std::string content("one\0two\xff", 8);
  const std::string path = dir.write("f", content);
  int64_t len = -1;
  AllocationFaults faults(0);
  const Text buf(g_file_read_buf(path.c_str(), &len));
  faults.disarm();
  ASSERT_NE(buf, nullptr);
  EXPECT_EQ(len, 8);
  EXPECT_EQ(std::string(buf.get(), 9), content + '\0');
  EXPECT_EQ(faults.outstanding(), 1);
}

TEST(FileReadBuf, AnEmptyFileGivesOneNul) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "");
  int64_t len = -1;
  const Text buf(g_file_read_buf(path.c_str(), &len));
  ASSERT_NE(buf, nullptr);
  EXPECT_EQ(len, 0);
  EXPECT_EQ(*buf, '\0');
}

TEST(FileReadBuf, AFileThatReportsNoSizeIsEmpty) {
  int64_t len = -1;
  const Text buf(g_file_read_buf("/proc/self/status", &len));
  ASSERT_NE(buf, nullptr);
  EXPECT_EQ(len, 0);
}

TEST(FileReadBuf, AMissingFileIsNullWithoutAMessage) {
  LogCapture log;
  int64_t len = 7;
  EXPECT_EQ(g_file_read_buf("/missing/file", &len), nullptr);
  EXPECT_EQ(len, 7);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FileReadBuf, TwoGiBAndMoreIsNullWithoutAMessage) {
  TemporaryDirectory dir;
  const std::string path = dir / "big";
  LogCapture log;
  // 5 GiB is 1 GiB in its low half, and would be read if the size were cut.
  for (const int64_t size :
       {2 * kGiB, 3 * kGiB, 4 * kGiB, 4 * kGiB + 5, 5 * kGiB, 8 * kGiB}) {
    make_sparse(path, size);
    int64_t len = 7;
    EXPECT_EQ(g_file_read_buf(path.c_str(), &len), nullptr) << size;
    EXPECT_EQ(len, 7);
  }
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FileReadBuf, AReadThatGivesAnotherCountIsReportedAndLeavesNothingOpen) {
  TemporaryDirectory dir;  // a directory has a size, opens, and cannot be read
  const std::string path = dir.path();
  const int expected = lowest_free_descriptor();
  struct stat64 status;
  ASSERT_EQ(stat64(path.c_str(), &status), 0);
  ASSERT_GT(status.st_size, 0);
  LogCapture log;
  int64_t len = 7;
  EXPECT_EQ(g_file_read_buf(path.c_str(), &len), nullptr);
  EXPECT_EQ(len, 7);
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "can't read file '" + path + "'.")});
  EXPECT_EQ(lowest_free_descriptor(), expected);
}

TEST(FileReadBuf, AShortReadIsReportedAndLeaksNothing) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  const int expected = lowest_free_descriptor();
  LogCapture log;
  int64_t len = 7;
  shorten_reads = true;
  char* const buf = g_file_read_buf(path.c_str(), &len);
  shorten_reads = false;
  EXPECT_EQ(buf, nullptr);
  EXPECT_EQ(len, 7);
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "can't read file '" + path + "'.")});
  EXPECT_EQ(lowest_free_descriptor(), expected);
  g_debug_set_level2(G_LOG_SILENT);  // collecting lines would allocate
  AllocationFaults faults(0);
  shorten_reads = true;
  g_file_read_buf(path.c_str(), &len);
  shorten_reads = false;
  faults.disarm();
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST(FileReadBuf, ExhaustedHeapIsReportedAndLeavesNothingOpen) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  const int expected = lowest_free_descriptor();
  LogCapture log;
  {
    AllocationFaults faults(1);
    int64_t len;
    EXPECT_EQ(g_file_read_buf(path.c_str(), &len), nullptr);
  }
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "failed to allocate 4 bytes.")});
  g_debug_set_level2(G_LOG_SILENT);  // collecting lines would allocate
  test::for_each_failed_allocation([&](AllocationFaults& faults) {
    int64_t len = 7;
    char* const buf = g_file_read_buf(path.c_str(), &len);
    faults.disarm();
    EXPECT_EQ(buf == nullptr, faults.failures() != 0);
    EXPECT_EQ(len, buf != nullptr ? 3 : 7);
    std::free(buf);
    EXPECT_EQ(lowest_free_descriptor(), expected);
  });
}

TEST(FileWriteBuf, BadArgumentsReportTheFirstCheckOnly) {
  LogCapture log;
  EXPECT_EQ(g_file_write_buf(nullptr, nullptr, 0), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "filename != NULL")});
  EXPECT_EQ(g_file_write_buf("/missing/file", nullptr, 0), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "buf != NULL")});
  EXPECT_EQ(g_file_write_buf("/missing/file", "", 0), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "len > 0")});
  EXPECT_EQ(g_file_write_buf("/missing/file", "", -1), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "len > 0")});
}

TEST(FileWriteBuf, AllocatesNothing) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "xyz");
  AllocationFaults faults(0);
  EXPECT_EQ(g_file_write_buf(path.c_str(), "ab", 2), 0);
  faults.disarm();
  EXPECT_EQ(faults.calls(), 0);
}

TEST(FileWriteBuf, AMissingFileIsReportedAndNotCreated) {
  TemporaryDirectory dir;
  const std::string path = dir / "missing";
  LogCapture log;
  EXPECT_EQ(g_file_write_buf(path.c_str(), "a", 1), -1);
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "can't open file '" + path +
                                                         "' - No such file or directory")});
  EXPECT_EQ(access(path.c_str(), F_OK), -1);
}

TEST(FileWriteBuf, LeavesTheOldTailAfterAShorterBuffer) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "xyz");
  EXPECT_EQ(g_file_write_buf(path.c_str(), "ab", 2), 0);
  EXPECT_EQ(test::read_file(path), "abz");
}

TEST(FileWriteBuf, ExtendsAShorterFile) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "x");
  EXPECT_EQ(g_file_write_buf(path.c_str(), "abc", 3), 0);
  EXPECT_EQ(test::read_file(path), "abc");
}

TEST(FileWriteBuf, AFailedWriteIsReportedTwiceAndLeavesNothingOpen) {
  const int expected = lowest_free_descriptor();
  LogCapture log;
  AllocationFaults faults(0);
  EXPECT_EQ(g_file_write_buf("/dev/full", "a", 1), -1);
  faults.disarm();
  EXPECT_EQ(log.take(),
            (Lines{warning_line("g_file", "No space left on device - " +
                                              std::to_string(ENOSPC) + "."),
                   warning_line("g_file", "failed to write file '/dev/full'.")}));
  EXPECT_EQ(lowest_free_descriptor(), expected);
}

TEST(FileWriteBuf, ALengthBeyondTheLowHalfIsAShortWrite) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "xyz");
  LogCapture log;
  EXPECT_EQ(g_file_write_buf(path.c_str(), "ab", (int64_t{1} << 32) + 2), -1);
  EXPECT_EQ(log.take(),
            Lines{warning_line("g_file", "failed to write file '" + path + "'.")});
  EXPECT_EQ(test::read_file(path), "abz");
}

TEST(LargeFile, SizesOffsetsAndCutsAreSixtyFourBits) {
  TemporaryDirectory dir;
  const std::string path = dir / "big";
  {
    const File file = open_file(path, 2);
    for (const int64_t offset :
         {2 * kGiB - 1, 2 * kGiB, 4 * kGiB - 1, 4 * kGiB, 5 * kGiB + 3}) {
      EXPECT_EQ(g_file_seek(file.get(), offset, SEEK_SET), offset);
      EXPECT_EQ(g_file_seek(file.get(), 0, SEEK_CUR), offset);
      EXPECT_EQ(g_file_truncate(file.get()), 0);
      EXPECT_EQ(g_file_size(path.c_str()), offset);
    }
    EXPECT_EQ(g_file_write(file.get(), "end", 3), 3);
  }
  EXPECT_EQ(g_file_size(path.c_str()), 5 * kGiB + 6);
  EXPECT_EQ(g_file_exist(path.c_str()), 1);
  const File file = open_file(path, 0);
  EXPECT_EQ(g_file_seek(file.get(), -3, SEEK_END), 5 * kGiB + 3);
  char buf[4] = {};
  EXPECT_EQ(g_file_read(file.get(), buf, 4), 3);
  EXPECT_STREQ(buf, "end");
}

TEST(FileDescriptors, RunningOutIsReported) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  struct rlimit previous;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &previous), 0);
  struct rlimit none = previous;
  none.rlim_cur = static_cast<rlim_t>(lowest_free_descriptor());
  LogCapture log;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  GFile* const file = g_file_open(path.c_str(), 0);
  setrlimit(RLIMIT_NOFILE, &previous);
  EXPECT_EQ(file, nullptr);
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "can't open file '" + path + "' - " +
                                                         std::strerror(EMFILE))});
}

// A call within which its thread ends.
struct LastCall {
  std::string path;   // a named pipe, or what the call is to use
  std::string other;  // next to it
  void (*call)(const LastCall&);

  void operator()() const { call(*this); }
};

TEST(FileCancellation, AThreadCancelledWhileItWaitsLosesNothing) {
  const struct {
    const char* name;
    bool is_open;  // the pipe's other end is: reading and writing wait, not opening
    void (*call)(const LastCall&);
  } rows[] = {
    {"opening", false, [](const LastCall& l) { g_file_open(l.path.c_str(), 0); }},
    {"opening to read all", false,
     [](const LastCall& l) {
       int64_t len;
       std::free(g_file_read_buf(l.path.c_str(), &len));
     }},
    {"opening to write all", false,
     [](const LastCall& l) { g_file_write_buf(l.path.c_str(), "a", 1); }},
    {"opening to copy from", false,
     [](const LastCall& l) { g_file_copy(l.path.c_str(), l.other.c_str()); }},
    {"opening to copy to", false,
     [](const LastCall& l) { g_file_copy(l.other.c_str(), l.path.c_str()); }},
// The address sanitizer would still guard the buffer of the frame that was left.
#if !defined(__SANITIZE_ADDRESS__)
    {"reading a copy", true,
     [](const LastCall& l) { g_file_copy(l.path.c_str(), l.other.c_str()); }},
#endif
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    TemporaryDirectory dir;
    const std::string path = dir / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int end = row.is_open ? open(path.c_str(), O_RDWR | O_CLOEXEC) : -1;
    const LastCall call{path, dir.write("other", "text"), row.call};
    test::expect_nothing_lost(call, PTHREAD_CANCELED, [](pthread_t thread) {
      usleep(50000);
      ASSERT_EQ(pthread_cancel(thread), 0);
    });
    if (end != -1) close(end);
  }
}

TEST(FileCancellation, AThreadThatIsToBeCancelledClosesItsFileFirst) {
  TemporaryDirectory dir;
  const std::string path = dir.write("f", "abc");
  const int descriptor = lowest_free_descriptor();
  GFile* const file = g_file_open(path.c_str(), 0);
  ASSERT_NE(fcntl(descriptor, F_GETFD), -1);
  pthread_t thread;
  const auto close_file = [](void* opened) -> void* {
    pthread_cancel(pthread_self());
    g_file_close(static_cast<GFile*>(opened));
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, nullptr, close_file, file), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

TEST(FileCancellation, AThreadThatLeavesWhileAFailureIsLoggedLosesNothing) {
  TemporaryDirectory dir;
  // A directory opens, has a size, and cannot be read.
  const LastCall reader{dir.path(), dir / "missing/file", [](const LastCall& l) {
                          int64_t len;
                          std::free(g_file_read_buf(l.path.c_str(), &len));
                        }};
  const LastCall copier{
      dir.write("from", "text"), dir / "missing/file",
      [](const LastCall& l) { g_file_copy(l.path.c_str(), l.other.c_str()); }};
  const LastCall writer{
      "/dev/full", "", [](const LastCall& l) { g_file_write_buf(l.path.c_str(), "a", 1); }};
  const LastCall mapper{dir / "from", "", [](const LastCall& l) {
                          g_file_map(l.path.c_str(), 0, 4, 1, nullptr);  // write-only
                        }};
  for (const LastCall& each : {reader, copier, writer, mapper}) {
    SCOPED_TRACE(each.path);
    test::expect_nothing_lost_at_a_message(each);
  }
}

}  // namespace
