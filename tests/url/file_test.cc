// The file module. This program defines read(), lseek64() and close(), which come before
// the C library's, so that the tests can count the library's calls and make reads fail.
//
// SPDX-License-Identifier: MIT

#include <groundwork/url.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "support/descriptors.h"
#include "support/next_function.h"
#include "support/temporary_directory.h"
#include "url/errors.h"

namespace {

// Calls since reset(), and bytes of a file that cannot be read, as on a damaged disk: reads
// end before them, and fail when they begin in them.
struct Traffic {
  int reads;
  int seeks;
  size_t largest_read;
  int64_t bad_from;
  int64_t bad_to;
  int error;
  int interruptions;  // so many reads fail with EINTR first
  int closing_error;  // what a close() that works leaves in `errno`; 0 to leave it alone
} traffic;

void reset_traffic() {
  traffic = {};
}

}  // namespace

extern "C" off64_t lseek64(int fd, off64_t offset, int whence) noexcept {
  static auto* const real = test::next_function<off64_t(int, off64_t, int)>("lseek64");
  ++traffic.seeks;
  return real(fd, offset, whence);
}

extern "C" ssize_t read(int fd, void* buf, size_t n) {
  static auto* const real = test::next_function<ssize_t(int, void*, size_t)>("read");
  static auto* const seek = test::next_function<off64_t(int, off64_t, int)>("lseek64");
  ++traffic.reads;
  traffic.largest_read = std::max(traffic.largest_read, n);
  if (traffic.interruptions > 0) {
    --traffic.interruptions;
    errno = EINTR;
    return -1;
  }
  if (traffic.error != 0) {
    const off64_t position = seek(fd, 0, SEEK_CUR);
    if (position >= traffic.bad_from && position < traffic.bad_to) {
      errno = traffic.error;
      return -1;
    }
    if (position < traffic.bad_from) {
      n = static_cast<size_t>(
          std::min<int64_t>(static_cast<int64_t>(n), traffic.bad_from - position));
    }
  }
  return real(fd, buf, n);
}

extern "C" int close(int fd) {
  static auto* const real = test::next_function<int(int)>("close");
  const int result = real(fd);
  if (traffic.closing_error != 0) errno = traffic.closing_error;
  return result;
}

namespace {

using test::kOtherErrno;
using test::kOtherError;
using test::set_errors;

URL_file& file_of(URL url) {
  return *reinterpret_cast<URL_file*>(url);
}

int64_t position_of(URL url) {
  return lseek64(file_of(url).fd, 0, SEEK_CUR);
}

class FileStream : public testing::Test {
 protected:
  FileStream() { reset_traffic(); }
  ~FileStream() override { close_all(); }

  URL open(const std::string& name) {
    const URL url = url_file_open(name.c_str());
    EXPECT_NE(url, nullptr) << name;
    opened_.push_back(url);
    set_errors();
    return url;
  }
  // A stream over a new file, unlimited when asked for.
  URL over(const std::string& content) { return open(directory_.write("file", content)); }
  URL unlimited_over(const std::string& content) {
    const URL url = over(content);
    url_set_readlimit(url, -1);
    return url;
  }
  void close_all() {
    for (const URL url : opened_) url_close(url);
    opened_.clear();
  }

  test::TemporaryDirectory directory_;

 private:
  std::vector<URL> opened_;
};

// While alive, descriptor 0 is another.
class StandardInput {
 public:
  explicit StandardInput(int fd) : saved_(dup(0)) {
    dup2(fd, 0);
    close(fd);
  }
  ~StandardInput() {
    dup2(saved_, 0);
    close(saved_);
  }
  StandardInput(const StandardInput&) = delete;
  StandardInput& operator=(const StandardInput&) = delete;

 private:
  int saved_;
};

// ---- The record and the module ------------------------------------------------------

TEST(UrlFile, HasViewPositionAndDescriptorAfterTheCommonPart) {
  EXPECT_EQ(offsetof(URL_file, data), sizeof(URL_record));
  EXPECT_EQ(offsetof(URL_file, size), offsetof(URL_file, data) + sizeof(void*));
  EXPECT_EQ(offsetof(URL_file, position), (offsetof(URL_file, size) + 4 + 7) / 8 * 8);
  EXPECT_EQ(offsetof(URL_file, fd), offsetof(URL_file, position) + 8);
  static_assert(std::is_same_v<decltype(URL_file::size), uint32_t>);
  static_assert(std::is_same_v<decltype(URL_file::position), int64_t>);
  static_assert(std::is_same_v<decltype(URL_file::fd), int32_t>);
}

TEST(UrlModuleFile, IsTypeOneWithoutInitialisation) {
  EXPECT_EQ(URL_module_file.type, 1);
  EXPECT_NE(URL_module_file.name_check, nullptr);
  EXPECT_EQ(URL_module_file.init, nullptr);
  EXPECT_EQ(URL_module_file.open, url_file_open);
  EXPECT_EQ(URL_module_file.next, nullptr);
}

TEST(UrlModuleFile, TakesEverythingButOtherSchemes) {
  struct {
    const char* name;
    bool taken;
  } const names[] = {
      {"/", true},         {"/a:/b", true},    {"file:", true},    {"FiLe:/x", true},
      {"file:/x", true},   {"FILE://x", true}, {"a.txt", true},    {"c:x", true},
      {"x:", true},        {"", true},         {"-", true},        {"~/a", true},
      {"a/b:/c", true},    {":", true},        {"a:b:/c", true},   {"http:x", true},
      {"fil", true},       {"filex:/", false}, {"ftp://h", false}, {"mailto:/x", false},
      {"http://h", false}, {":/", false},      {"c:/x", false},    {"file :/x", false},
      {"mile:/x", false},
  };
  for (const auto& [name, taken] : names) {
    EXPECT_EQ(URL_module_file.name_check(name) != 0, taken) << name;
  }
}

TEST(UrlModuleFile, IsOpenedThroughUrlOpen) {
  EXPECT_EXIT(
      {
        url_add_module(&URL_module_file);
        EXPECT_EQ(url_check_type("/etc"), URL_FILE);
        EXPECT_EQ(url_check_type("ftp://h"), -1);
        {
          test::TemporaryDirectory directory;
          const URL url = url_open(("file:" + directory.write("f", "text")).c_str());
          char buf[8] = "";
          EXPECT_EQ(url_read(url, buf, 8), 4);
          EXPECT_STREQ(buf, "text");
          url_close(url);
          EXPECT_EQ(url_open((directory / "none").c_str()), nullptr);
          EXPECT_ERRORS(ENOENT, ENOENT);
        }
        std::_Exit(HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

// ---- Opening ------------------------------------------------------------------------

TEST_F(FileStream, HasAllSlotsAnEmptyViewAndTheSizeAsLimit) {
  const URL url = over("0123456789");
  EXPECT_EQ(url->type, URL_FILE);
  EXPECT_NE(url->read, nullptr);
  EXPECT_NE(url->gets, nullptr);
  EXPECT_NE(url->fgetc, nullptr);
  EXPECT_NE(url->seek, nullptr);
  EXPECT_NE(url->tell, nullptr);
  EXPECT_NE(url->close, nullptr);
  EXPECT_EQ(url->nread, 0u);
  EXPECT_EQ(url->readlimit, 10u);
  EXPECT_EQ(url->eof, 0);
  EXPECT_EQ(file_of(url).data, nullptr);
  EXPECT_EQ(file_of(url).size, 0u);
  EXPECT_EQ(file_of(url).position, 0);
  EXPECT_GT(file_of(url).fd, 2);
  EXPECT_EQ(position_of(url), 0);
}

TEST_F(FileStream, LeavesUrlErrnoAloneAndClearsErrnoWhenItOpens) {
  const std::string path = directory_.write("file", "text");
  set_errors();
  const URL url = url_file_open(path.c_str());
  EXPECT_ERRORS(kOtherError, 0);
  url_close(url);
}

TEST_F(FileStream, OpensNamesWithTheSchemeInAnyCase) {
  const std::string path = directory_.write("file", "text");
  for (const char* const scheme : {"file:", "FILE:", "fIlE:", "file://", ""}) {
    EXPECT_EQ(open(scheme + path)->readlimit, 4u);
  }
}

TEST_F(FileStream, UnescapesNothing) {
  directory_.write("a%20b", "text");
  EXPECT_EQ(open(directory_ / "a%20b")->readlimit, 4u);
  EXPECT_EQ(url_file_open((directory_ / "a b").c_str()), nullptr);
}

TEST_F(FileStream, RemovesTheSchemeOnce) {
  EXPECT_EQ(url_file_open(("file:file:" + directory_.write("file", "text")).c_str()),
            nullptr);
  EXPECT_ERRORS(ENOENT, ENOENT);
}

TEST_F(FileStream, ExpandsHomeDirectories) {
  directory_.write("file", "text");
  setenv("HOME", directory_.path().c_str(), 1);
  EXPECT_EQ(open("~/file")->readlimit, 4u);
  EXPECT_EQ(open("file:~/file")->readlimit, 4u);
}

TEST_F(FileStream, WithoutANameFailsWithEnoent) {
  for (const char* const name : {"", "file:", "FILE:"}) {
    set_errors();
    EXPECT_EQ(url_file_open(name), nullptr);
    EXPECT_ERRORS(ENOENT, ENOENT);
  }
}

TEST_F(FileStream, ThatCannotBeOpenedGivesTheErrorOfOpen) {
  set_errors();
  EXPECT_EQ(url_file_open((directory_ / "none").c_str()), nullptr);
  EXPECT_ERRORS(ENOENT, ENOENT);
  EXPECT_EQ(url_file_open((directory_.write("file", "") + "/x").c_str()), nullptr);
  EXPECT_ERRORS(ENOTDIR, ENOTDIR);
}

TEST_F(FileStream, IsClosedOnExec) {
  EXPECT_EQ(fcntl(file_of(over("")).fd, F_GETFD), FD_CLOEXEC);
}

TEST_F(FileStream, OfFourGigabytesAndMoreHasItsSizeModuloTwoToTheThirtyTwoAsLimit) {
  const std::string path = directory_.write("file", "text");
  struct {
    int64_t size;
    uint32_t limit;
  } const sizes[] = {{(int64_t{1} << 32) + 5, 5}, {int64_t{3} << 30, 3u << 30}};
  for (const auto& [size, limit] : sizes) {
    if (truncate64(path.c_str(), size) != 0) GTEST_SKIP() << "no large files here";
    const URL url = open(path);
    EXPECT_EQ(url->readlimit, limit);
    EXPECT_EQ(url_seek(url, -1, SEEK_END), size - 1);
    EXPECT_EQ(url_tell(url), size - 1);
  }
}

TEST_F(FileStream, WithoutMemoryFailsAndLeavesNoDescriptor) {
  const std::string path = directory_.write("file", "text");
  const int before = test::count_open_descriptors();
  set_errors();
  test::AllocationFaults faults(1);
  const URL url = url_file_open(path.c_str());
  faults.disarm();
  EXPECT_EQ(url, nullptr);
  EXPECT_ERRORS(ENOMEM, ENOMEM);
  EXPECT_EQ(test::count_open_descriptors(), before);
}

TEST_F(FileStream, WithoutMemoryReportsThatWhateverClosingTheDescriptorReturns) {
  const std::string path = directory_.write("file", "text");
  set_errors();
  traffic.closing_error = EIO;
  test::AllocationFaults faults(1);
  EXPECT_EQ(url_file_open(path.c_str()), nullptr);
  faults.disarm();
  EXPECT_ERRORS(ENOMEM, ENOMEM);
}

TEST_F(FileStream, WithoutMemoryLeavesDescriptorZeroOpen) {
  const StandardInput input(::open(directory_.write("file", "text").c_str(), O_RDONLY));
  test::AllocationFaults faults(1);
  EXPECT_EQ(url_file_open("-"), nullptr);
  faults.disarm();
  EXPECT_ERRORS(ENOMEM, ENOMEM);
  EXPECT_NE(fcntl(0, F_GETFD), -1);
}

TEST_F(FileStream, CloseReleasesDescriptorAndRecordAndKeepsErrno) {
  const std::string path = directory_.write("file", "text");
  const int before = test::count_open_descriptors();
  test::AllocationFaults faults(0);
  const URL url = url_file_open(path.c_str());
  faults.disarm();
  errno = kOtherErrno;
  url_close(url);
  const int error = errno;
  EXPECT_EQ(error, kOtherErrno);
  EXPECT_EQ(test::count_open_descriptors(), before);
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST_F(FileStream, WithoutADescriptorClosesNone) {
  const URL url = url_file_open(directory_.write("file", "text").c_str());
  const int fd = file_of(url).fd;
  file_of(url).fd = -1;
  url_close(url);
  EXPECT_EQ(close(fd), 0);
}

// ---- Standard input, pipes, directories ---------------------------------------------

TEST_F(FileStream, NamedDashReadsStandardInputWithoutSeekOrLimit) {
  const StandardInput input(
      ::open(directory_.write("file", "a line\nrest").c_str(), O_RDONLY));
  const URL url = open("-");
  EXPECT_EQ(file_of(url).fd, 0);
  EXPECT_EQ(url->seek, nullptr);
  EXPECT_EQ(url->tell, nullptr);
  EXPECT_EQ(url->readlimit, 0x7fffffffu);
  char buf[16] = "";
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "a line\n");
  EXPECT_EQ(url_tell(url), 7);
  EXPECT_EQ(url_seek(url, 2, SEEK_CUR), 7);
  EXPECT_EQ(url_fgetc(url), 's');
}

TEST_F(FileStream, CloseRewindsStandardInputInsteadOfClosingIt) {
  const StandardInput input(::open(directory_.write("file", "text").c_str(), O_RDONLY));
  const URL url = url_file_open("-");
  char buf[8];
  EXPECT_EQ(url_read(url, buf, 3), 3);
  url_close(url);
  EXPECT_EQ(lseek64(0, 0, SEEK_CUR), 0);
}

TEST_F(FileStream, OnDescriptorZeroIsStandardInputWhateverItsName) {
  const std::string path = directory_.write("file", "text");
  const StandardInput input(::open(path.c_str(), O_RDONLY));
  close(0);
  const URL url = url_file_open(path.c_str());
  ASSERT_NE(url, nullptr);
  EXPECT_EQ(file_of(url).fd, 0);
  EXPECT_EQ(url->seek, nullptr);
  EXPECT_EQ(url->readlimit, 0x7fffffffu);
  url_close(url);
  EXPECT_NE(fcntl(0, F_GETFD), -1);
}

TEST_F(FileStream, WhoseNameOnlyBeginsWithDashIsAFile) {
  for (const char* const name : {"-nosuchfile", "--"}) {
    EXPECT_EQ(url_file_open(name), nullptr);
    EXPECT_ERRORS(ENOENT, ENOENT);
  }
}

TEST_F(FileStream, NamedDashWithTheSchemeIsAFile) {
  EXPECT_EQ(url_file_open("file:-"), nullptr);
  EXPECT_ERRORS(ENOENT, ENOENT);
}

TEST_F(FileStream, OverAPipeIsAsGoodAsUnlimited) {
  const std::string path = directory_ / "pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int writer = ::open(path.c_str(), O_RDWR);
  const URL url = open(path);
  EXPECT_EQ(url->readlimit, 0xffffffffu);
  EXPECT_NE(url->seek, nullptr);
  ASSERT_EQ(write(writer, "one\ntwo\n", 8), 8);
  close(writer);
  char buf[16];
  reset_traffic();
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "one\n");
  EXPECT_EQ(traffic.reads, 4);
  EXPECT_EQ(traffic.largest_read, 1u);
  EXPECT_EQ(url_read(url, buf, 16), 4);
  EXPECT_EQ(url_read(url, buf, 16), 0);
  EXPECT_EQ(url_tell(url), -1);
}

TEST_F(FileStream, OverADirectoryReportsReadErrors) {
  const URL url = open(directory_.path());
  url_set_readlimit(url, -1);
  char buf[8] = "....";
  EXPECT_EQ(url_read(url, buf, 4), -1);
  EXPECT_ERRORS(EISDIR, EISDIR);
  set_errors();
  EXPECT_EQ(url_fgetc(url), -1);
  EXPECT_ERRORS(URLERR_NONE, EISDIR);
  EXPECT_EQ(url_gets(url, buf, 4), buf);
  EXPECT_ERRORS(URLERR_NONE, EISDIR);
  EXPECT_STREQ(buf, "...");
}

// ---- Reading a file -----------------------------------------------------------------

TEST_F(FileStream, ReadsUpToItsSizeAndThenSetsEof) {
  const URL url = over("0123456789");
  char buf[16] = "";
  EXPECT_EQ(url_read(url, buf, 16), 10);
  EXPECT_STREQ(buf, "0123456789");
  EXPECT_EQ(url->eof, 0);
  EXPECT_EQ(url_read(url, buf, 16), 0);
  EXPECT_EQ(url->eof, 1);
}

TEST_F(FileStream, ReadsGoStraightToTheBuffer) {
  const URL url = over(std::string(100000, 'x'));
  std::vector<char> buf(100000);
  reset_traffic();
  EXPECT_EQ(url_read(url, buf.data(), 100000), 100000);
  EXPECT_EQ(traffic.reads, 1);
  EXPECT_EQ(traffic.seeks, 0);
}

TEST_F(FileStream, ReadErrorsGoToUrlErrno) {
  const URL url = over("0123456789");
  traffic.bad_to = 10;
  traffic.error = EIO;
  char buf[16];
  EXPECT_EQ(url_read(url, buf, 16), -1);
  EXPECT_ERRORS(EIO, EIO);
  EXPECT_EQ(url->nread, 0u);
}

TEST_F(FileStream, FgetcGivesBytesAndLeavesErrorsToErrno) {
  const URL url = unlimited_over(
      "\xff"
      "b");
  EXPECT_EQ(url_fgetc(url), 0xff);
  EXPECT_EQ(url_fgetc(url), 'b');
  set_errors();
  EXPECT_EQ(url_fgetc(url), -1);
  EXPECT_ERRORS(URLERR_NONE, 0);
  traffic.bad_to = 10;
  traffic.error = EIO;
  EXPECT_EQ(url_fgetc(url), -1);
  EXPECT_ERRORS(URLERR_NONE, EIO);
}

TEST_F(FileStream, SeeksOnItsDescriptor) {
  const URL url = over("0123456789");
  char buf[16];
  url_read(url, buf, 3);
  EXPECT_EQ(url_seek(url, 5, SEEK_SET), 5);
  EXPECT_EQ(url->nread, 0u);
  EXPECT_EQ(position_of(url), 5);
  EXPECT_EQ(url_seek(url, 2, SEEK_CUR), 7);
  EXPECT_EQ(url_tell(url), 7);
  EXPECT_EQ(url_fgetc(url), '7');
  EXPECT_EQ(url_seek(url, 3, SEEK_END), 13);
  set_errors();
  EXPECT_EQ(url_seek(url, -1, SEEK_SET), -1);
  EXPECT_ERRORS(URLERR_NONE, EINVAL);
}

TEST_F(FileStream, SkipsByMoving) {
  const URL url = over("0123456789");
  reset_traffic();
  url_skip(url, 4);
  EXPECT_EQ(traffic.reads, 0);
  EXPECT_EQ(url_fgetc(url), '4');
  url_rewind(url);
  EXPECT_EQ(url_fgetc(url), '0');
}

// ---- Lines of a file ----------------------------------------------------------------

TEST_F(FileStream, LinesEndAtCarriageReturnsAndLineFeeds) {
  url_newline_code = 'w';  // not heeded
  const URL url = over("one\ntwo\rthree\r\nx");
  char buf[16];
  for (const char* const line : {"one\n", "two\r", "three\r", "\n", "x"}) {
    ASSERT_EQ(url_gets(url, buf, 16), buf);
    EXPECT_STREQ(buf, line);
    EXPECT_EQ(position_of(url), url->nread);
  }
  EXPECT_EQ(url_gets(url, buf, 16), nullptr);
  EXPECT_EQ(url->eof, 0);
  url_newline_code = 10;
}

TEST_F(FileStream, LineCutShortByTheEndKeepsAStaleByteBeforeTheTerminator) {
  const URL url = unlimited_over("abc");
  char buf[9] = "ABCDEFGH";
  EXPECT_EQ(url_gets(url, buf, 9), buf);
  EXPECT_EQ(std::memcmp(buf, "abcD\0FGH", 9), 0);
  EXPECT_EQ(url->nread, 4u);  // the stale byte is part of the text
  EXPECT_EQ(url_gets(url, buf, 9), nullptr);
  EXPECT_EQ(std::memcmp(buf, "abcD\0FGH", 9), 0);
}

TEST_F(FileStream, LineCutShortByTheReadLimitEndsProperly) {
  const URL url = over("abc");
  char buf[9] = "ABCDEFGH";
  EXPECT_EQ(url_gets(url, buf, 9), buf);
  EXPECT_EQ(std::memcmp(buf, "abc\0EFGH", 9), 0);
}

TEST_F(FileStream, LineReaderLeavesTheBufferBeyondTheLineAlone) {
  const URL url = over("a\nbcdefgh\n");
  char buf[9] = "ABCDEFGH";
  EXPECT_EQ(url_gets(url, buf, 9), buf);
  EXPECT_EQ(std::memcmp(buf, "a\n\0DEFGH", 9), 0);
}

TEST_F(FileStream, LineIsCutAtTheSizeOfTheBuffer) {
  const URL url = over("abcdef\n");
  char buf[4];
  EXPECT_EQ(url_gets(url, buf, 4), buf);
  EXPECT_STREQ(buf, "abc");
  EXPECT_EQ(position_of(url), 3);
  EXPECT_EQ(url_gets(url, buf, 4), buf);
  EXPECT_STREQ(buf, "def");
  EXPECT_EQ(url_gets(url, buf, 4), buf);
  EXPECT_STREQ(buf, "\n");
}

TEST_F(FileStream, LineReaderWithoutRoomStoresAnEmptyText) {
  const URL url = over("abc\n");
  for (const int32_t n : {1, 0, -1, INT32_MIN}) {
    char buf[2] = {'x', 'y'};
    reset_traffic();
    EXPECT_EQ(url->gets(url, buf, n), buf);
    EXPECT_EQ(buf[0], '\0');
    EXPECT_EQ(buf[1], 'y');
    EXPECT_EQ(traffic.reads, 0);
  }
}

TEST_F(FileStream, LineReaderCountsAFailedReadAsTheByteThatWasThere) {
  const URL url = over("abcdef\n");
  traffic.bad_from = 2;
  traffic.bad_to = 100;
  traffic.error = EIO;
  char buf[9] = "ABC\nEFGH";
  EXPECT_EQ(url_gets(url, buf, 9), buf);
  EXPECT_EQ(std::memcmp(buf, "abC\n\0FGH", 9), 0);
  EXPECT_ERRORS(URLERR_NONE, EIO);
  EXPECT_EQ(position_of(url), 2);
}

TEST_F(FileStream, LineReaderFailingThroughoutFillsTheBuffer) {
  const URL url = over("abcdef\n");
  traffic.bad_to = 100;
  traffic.error = EIO;
  char buf[9] = "ABCDEFGH";
  EXPECT_EQ(url_gets(url, buf, 7), buf);
  EXPECT_EQ(std::memcmp(buf, "ABCDEF\0H", 9), 0);
}

TEST_F(FileStream, LineReaderCountsAReadThatIsInterruptedToo) {
  const URL url = over("abcdefgh\n");
  traffic.interruptions = 2;
  char buf[9] = "ABCDEFGH";
  EXPECT_EQ(url_gets(url, buf, 7), buf);
  EXPECT_EQ(std::memcmp(buf, "ABabcd\0H", 9), 0);
  EXPECT_ERRORS(URLERR_NONE, EINTR);
  traffic.interruptions = 1;
  buf[0] = '\r';
  EXPECT_EQ(url_gets(url, buf, 7), buf);
  EXPECT_STREQ(buf, "\r");
  EXPECT_EQ(position_of(url), 4);
}

TEST_F(FileStream, LinesOfAFileCostTwoSystemCallsEach) {
  constexpr int kLines = 200;
  for (const size_t length : {20u, 200u, 2000u}) {
    std::string content;
    for (int i = 0; i < kLines; ++i) content += std::string(length - 1, 'x') + "\n";
    const URL url = over(content);
    struct stat64 status;
    fstat64(file_of(url).fd, &status);
    if (status.st_blocks == 0) GTEST_SKIP() << "files without blocks here";
    std::vector<char> buf(4096);
    for (int i = 0; i < kLines; ++i) {
      if (i == 1) reset_traffic();  // the stream learns the length from the first line
      ASSERT_EQ(url_gets(url, buf.data(), 4096), buf.data());
      ASSERT_EQ(std::strlen(buf.data()), length);
    }
    EXPECT_EQ(traffic.reads, kLines - 1) << length;
    EXPECT_LE(traffic.seeks, kLines) << length;
    EXPECT_LE(traffic.largest_read, length + length / 4 + 300) << length;
  }
}

TEST_F(FileStream, AnUnexpectedlyLongLineCostsTwoMoreReads) {
  std::string content;
  for (int i = 0; i < 50; ++i)
    content += std::string(20 + static_cast<size_t>(i % 7), 'x') + "\n";
  const URL url = unlimited_over(content + std::string(3000, 'y') + "\n" + content);
  struct stat64 status;
  fstat64(file_of(url).fd, &status);
  if (status.st_blocks == 0) GTEST_SKIP() << "files without blocks here";
  char buf[4000];
  for (int i = 0; i < 50; ++i) url_gets(url, buf, sizeof buf);
  reset_traffic();
  url_gets(url, buf, sizeof buf);
  EXPECT_EQ(std::string(buf), std::string(3000, 'y') + "\n");
  EXPECT_EQ(traffic.reads, 3);
  EXPECT_EQ(traffic.seeks, 1);
}

TEST_F(FileStream, RecordsOfOneLengthAreReadWithoutSteppingBack) {
  constexpr int kLines = 50;
  std::string content;
  for (int i = 0; i < kLines; ++i) content += std::string(99, 'x') + "\n";
  content += std::string(150, 'y') + "\n" + std::string(20, 'z') + "\n";
  const URL url = over(content);
  struct stat64 status;
  fstat64(file_of(url).fd, &status);
  if (status.st_blocks == 0) GTEST_SKIP() << "files without blocks here";
  char buf[512];
  for (int i = 0; i < 3; ++i) ASSERT_EQ(url_gets(url, buf, 512), buf);
  reset_traffic();
  for (int i = 3; i < kLines; ++i) {
    ASSERT_EQ(url_gets(url, buf, 512), buf);
    ASSERT_EQ(buf, std::string(99, 'x') + "\n");
  }
  EXPECT_EQ(traffic.reads, kLines - 3);
  EXPECT_EQ(traffic.largest_read, 100u);
  EXPECT_EQ(traffic.seeks, 0);
  EXPECT_EQ(position_of(url), 100 * kLines);
  // Lines of other lengths are found nevertheless.
  ASSERT_EQ(url_gets(url, buf, 512), buf);
  EXPECT_EQ(buf, std::string(150, 'y') + "\n");
  EXPECT_EQ(position_of(url), 100 * kLines + 151);
  ASSERT_EQ(url_gets(url, buf, 512), buf);
  EXPECT_EQ(buf, std::string(20, 'z') + "\n");
  EXPECT_EQ(position_of(url), 100 * kLines + 172);
}

TEST_F(FileStream, LinesOfStandardInputAreReadByteByByte) {
  const StandardInput input(
      ::open(directory_.write("file", "a line\nrest").c_str(), O_RDONLY));
  const URL url = open("-");
  char buf[16];
  reset_traffic();
  url_gets(url, buf, 16);
  EXPECT_EQ(traffic.reads, 7);
  EXPECT_EQ(traffic.largest_read, 1u);
  EXPECT_EQ(traffic.seeks, 0);
}

TEST_F(FileStream, LinesOfWhatTheKernelMakesUpAreReadByteByByte) {
  const URL url = open("/proc/version");
  url_set_readlimit(url, -1);  // its size cannot be found by seeking
  char buf[4] = "";
  reset_traffic();
  url_gets(url, buf, 4);
  EXPECT_EQ(traffic.reads, 3);
  EXPECT_EQ(traffic.largest_read, 1u);
}

bool has_blocks(URL url) {
  struct stat64 status = {};
  fstat64(file_of(url).fd, &status);
  return status.st_blocks != 0;
}

TEST_F(FileStream, StrippedLinesOfAFileCostTwoSystemCallsEach) {
  constexpr int kLines = 200;
  for (const char* const end : {"\n", "\r\n", "\n\n\n"}) {
    for (const size_t length : {20u, 200u, 2000u}) {
      std::string content;
      for (int i = 0; i < kLines; ++i) {
        content += std::string(length - static_cast<size_t>(i % 3), 'x') + end;
      }
      const URL url = over(content);
      if (!has_blocks(url)) GTEST_SKIP() << "files without blocks here";
      std::vector<char> buf(4096);
      for (int i = 0; i < kLines; ++i) {
        if (i == 1) reset_traffic();  // the stream learns the length from the first line
        ASSERT_EQ(url_readline(url, buf.data(), 4096), static_cast<int>(length) - i % 3);
      }
      EXPECT_LE(traffic.reads, kLines + 2) << length;
      EXPECT_LE(traffic.seeks, kLines) << length;
      EXPECT_LE(traffic.largest_read, length + length / 4 + 300) << length;
    }
  }
}

TEST_F(FileStream, StrippedLinesOfStandardInputAreReadByteByByte) {
  const StandardInput input(
      ::open(directory_.write("file", "a line\nrest").c_str(), O_RDONLY));
  const URL url = open("-");
  char buf[16];
  reset_traffic();
  EXPECT_EQ(url_readline(url, buf, 16), 6);
  EXPECT_EQ(traffic.reads, 7);
  EXPECT_EQ(traffic.largest_read, 1u);
  EXPECT_EQ(traffic.seeks, 0);
}

TEST_F(FileStream, StrippedLinesOfWhatTheKernelMakesUpAreReadByteByByte) {
  const URL url = open("/proc/version");
  url_set_readlimit(url, -1);
  char buf[4] = "";
  reset_traffic();
  EXPECT_EQ(url_readline(url, buf, 4), 3);
  EXPECT_EQ(traffic.reads, 3);
  EXPECT_EQ(traffic.largest_read, 1u);
}

// Byte by byte each of them was stored for a moment; the last is still there.
TEST_F(FileStream, AtTheEndTheLastEmptyLineIsLeftInTheBuffer) {
  for (const char* const content : {"\n", "\n\r", "\r\n\r\n"}) {
    const URL url = over(content);
    char buf[16] = "zz";
    EXPECT_EQ(url_readline(url, buf, 16), 0);
    EXPECT_EQ(buf[0], content[std::strlen(content) - 1]);
    EXPECT_EQ(buf[1], 'z');
    EXPECT_EQ(url->eof, 1);
  }
}

// A byte reader that the program has put in is called for every byte.
TEST_F(FileStream, AReplacedByteReaderIsAskedForStrippedLines) {
  const URL url = over("one\ntwo\n");
  static int32_t (*previous)(URL) = nullptr;
  static int calls = 0;
  previous = std::exchange(url->fgetc, [](URL stream) -> int32_t {
    ++calls;
    const int32_t byte = previous(stream);
    return byte == 'o' ? '0' : byte;
  });
  char buf[16];
  EXPECT_EQ(url_readline(url, buf, 16), 3);
  EXPECT_STREQ(buf, "0ne");
  EXPECT_EQ(calls, 4);
  url->fgetc = previous;
  EXPECT_EQ(url_readline(url, buf, 16), 3);
  EXPECT_STREQ(buf, "two");
}

TEST_F(FileStream, StrippedLinesOfAViewComeFromTheView) {
  const URL url = unlimited_over("file\n");
  file_of(url).data = reinterpret_cast<const uint8_t*>("view\nrest");
  file_of(url).size = 9;
  char buf[16];
  EXPECT_EQ(url_readline(url, buf, 16), 4);
  EXPECT_STREQ(buf, "view");
  EXPECT_EQ(position_of(url), 0);
  file_of(url).data = nullptr;
  EXPECT_EQ(url_readline(url, buf, 16), 4);
  EXPECT_STREQ(buf, "file");
}

TEST_F(FileStream, LineReaderFollowsAChangeOfTheDescriptor) {
  const URL url = unlimited_over("one\ntwo\n");
  char buf[16];
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "three\nfour\n", 11), 11);
  const int file = std::exchange(file_of(url).fd, ends[0]);
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "three\n");
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "four\n");
  close(file);
  close(ends[1]);
}

// ---- Lines are copied in words where the C library has no fast search ----------------

// Buffers for lines begin 0 to 7 bytes after an aligned address.
constexpr size_t kOffsets = 8;

class LineBuffer {
 public:
  explicit LineBuffer(size_t offset) : offset_(offset) { bytes_.fill('-'); }

  char* text() { return bytes_.data() + offset_; }

  // Whether `line` is in the buffer with its NUL, and all other bytes are as they were.
  testing::AssertionResult has_only(const std::string& line) const {
    const std::string bytes(bytes_.data(), bytes_.size());
    std::string expected(bytes_.size(), '-');
    expected.replace(offset_, line.size() + 1, line + '\0');
    if (bytes == expected) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "offset " << offset_ << ": " << bytes;
  }

 private:
  const size_t offset_;
  alignas(8) std::array<char, 200> bytes_;
};

// Reads a file that ends with a line end, with url_gets().
void expect_lines(URL url, const std::string& content, int32_t n, size_t offset) {
  url_seek(url, 0, SEEK_SET);
  uint32_t counted = 0;
  for (size_t at = 0; at < content.size();) {
    const size_t end = content.find_first_of("\r\n", at) + 1;
    const std::string line =
        content.substr(at, std::min(end - at, static_cast<size_t>(n - 1)));
    at += line.size();
    counted += static_cast<uint32_t>(std::strlen(line.c_str()));
    LineBuffer buffer(offset);
    ASSERT_EQ(url_gets(url, buffer.text(), n), buffer.text());
    ASSERT_TRUE(buffer.has_only(line)) << "up to " << at;
    ASSERT_EQ(url->nread, counted) << "up to " << at;
    ASSERT_EQ(position_of(url), static_cast<int64_t>(at));
  }
}

// The same with url_readline(), for lines shorter than the buffer.
void expect_stripped_lines(URL url, const std::string& content, size_t offset) {
  url_seek(url, 0, SEEK_SET);
  for (size_t at = content.find_first_not_of("\r\n"); at != content.npos;) {
    const size_t end = content.find_first_of("\r\n", at);
    const std::string line = content.substr(at, end - at);
    LineBuffer buffer(offset);
    ASSERT_EQ(url_readline(url, buffer.text(), 100), static_cast<int32_t>(line.size()));
    ASSERT_TRUE(buffer.has_only(line)) << "up to " << end;
    ASSERT_EQ(url->nread, end + 1);
    ASSERT_EQ(position_of(url), static_cast<int64_t>(end + 1));
    at = content.find_first_not_of("\r\n", end);
  }
}

std::string lines_of_all_lengths(const std::string& filler, const std::string& end) {
  std::string content;
  for (size_t length = 0; length <= 70; ++length) {
    for (size_t i = 0; i < length; ++i) content += filler[i % filler.size()];
    content += end;
  }
  return content;
}

TEST_F(FileStream, LinesOfAllLengthsFitBuffersOfAllAlignments) {
  const std::string fillers[] = {"plain text", "\t", "words\tand\ttabs", "\xc3\xa4\xff\x80",
                                 "\x8d\x8e\x0e\x0b\x0c\x01"};
  for (const std::string& filler : fillers) {
    for (const char* const end : {"\n", "\r", "\r\n", "\n\n\n"}) {
      const std::string content = lines_of_all_lengths(filler, end);
      const URL url = unlimited_over(content);
      for (size_t offset = 0; offset < kOffsets; ++offset) {
        ASSERT_NO_FATAL_FAILURE(expect_lines(url, content, 100, offset));
        ASSERT_NO_FATAL_FAILURE(expect_stripped_lines(url, content, offset));
      }
      close_all();
    }
  }
}

TEST_F(FileStream, LinesAreCutAtBuffersOfAllSizesAndAlignments) {
  const std::string content = lines_of_all_lengths("plain text", "\n");
  const URL url = unlimited_over(content);
  for (int32_t n = 2; n < 40; ++n) {
    for (size_t offset = 0; offset < kOffsets; ++offset) {
      ASSERT_NO_FATAL_FAILURE(expect_lines(url, content, n, offset));
    }
  }
}

// Each byte before and after a line's end, and at all places of a line.
TEST_F(FileStream, NoOtherByteEndsALine) {
  std::string content;
  for (int value = 0; value < 256; ++value) {
    const char byte = static_cast<char>(value);
    if (byte == '\n' || byte == '\r') continue;
    for (size_t place = 0; place < 20; ++place) {
      std::string line(20, 'x');
      line[place] = byte;
      content += line + "\n";
    }
    for (const char end : {'\n', '\r'}) {
      for (size_t length = 0; length < 20; ++length) {
        content += std::string(length, 'x') + byte + end + byte + end;
      }
    }
  }
  const URL url = unlimited_over(content);
  ASSERT_NO_FATAL_FAILURE(expect_lines(url, content, 100, 0));
  ASSERT_NO_FATAL_FAILURE(expect_stripped_lines(url, content, 0));
}

TEST_F(FileStream, OfALineWithANulOnlyTheBytesBeforeItAreCounted) {
  std::string content;
  for (size_t place = 0; place < 70; ++place) {
    std::string line(70, 'x');
    line[place] = '\0';
    content += line + "\n";
  }
  const URL url = unlimited_over(content);
  for (size_t offset = 0; offset < kOffsets; ++offset) {
    ASSERT_NO_FATAL_FAILURE(expect_lines(url, content, 100, offset));
    ASSERT_NO_FATAL_FAILURE(expect_stripped_lines(url, content, offset));
  }
}

TEST_F(FileStream, OfALongLineWithANulOnlyTheBytesBeforeItAreCounted) {
  for (const size_t place : {10u, 300u, 5000u, 9000u}) {
    std::string content(9100, 'x');
    content[place] = '\0';
    content.back() = '\n';
    const URL url = unlimited_over(content);
    std::vector<char> buf(10000);
    EXPECT_EQ(url_gets(url, buf.data(), 10000), buf.data());
    EXPECT_EQ(url->nread, place);
    EXPECT_EQ(position_of(url), 9100);
  }
}

TEST_F(FileStream, TheLineReaderItselfCountsNothing) {
  const URL url = unlimited_over("one\ntwo\n");
  char buf[16];
  EXPECT_EQ(url->gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "one\n");
  EXPECT_EQ(url->nread, 0u);
}

TEST_F(FileStream, AReplacedLineReaderIsAskedForLines) {
  const URL url = unlimited_over("one\ntwo\n");
  url->gets = [](URL, char* buf, int32_t) { return std::strcpy(buf, "other"); };
  char buf[16];
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "other");
  EXPECT_EQ(url->nread, 5u);
  EXPECT_EQ(position_of(url), 0);
}

// ---- Against a reader of single bytes -----------------------------------------------

// What the stream is to do, in its plainest form: every line byte by byte.
class Reference {
 public:
  Reference(int fd, uint32_t limit) : fd_(fd), readlimit(limit) {}

  int32_t read_some(char* buf, int32_t n) {
    if (n < 1) return 0;
    clear();
    if (nread >= readlimit) {
      eof = 1;
      return 0;
    }
    if (nread + static_cast<uint32_t>(n) > readlimit) {
      n = static_cast<int32_t>(readlimit - nread);
    }
    const auto count = static_cast<int32_t>(read(fd_, buf, static_cast<size_t>(n)));
    if (count == -1) error = errno;
    if (count > 0) nread += static_cast<uint32_t>(count);
    return count;
  }

  bool gets(char* buf, int32_t n) {
    if (nread >= readlimit) return false;
    clear();
    if (n > 0 && nread + static_cast<uint32_t>(n) > readlimit) {
      n = static_cast<int32_t>(readlimit - nread + 1);
    }
    const bool some = gets_slot(buf, n);
    if (some) nread += static_cast<uint32_t>(std::strlen(buf));
    return some;
  }

  bool gets_slot(char* buf, int32_t n) {
    if (n < 2) {
      buf[0] = '\0';
      return true;
    }
    for (int32_t i = 0; i < n - 1; ++i) {
      if (read(fd_, buf + i, 1) == 0) {
        if (i == 0) return false;
        buf[i + 1] = '\0';
        return true;
      }
      if (buf[i] == '\n' || buf[i] == '\r') {
        buf[i + 1] = '\0';
        return true;
      }
    }
    buf[n - 1] = '\0';
    return true;
  }

  int32_t line_byte() {
    if (nread >= readlimit) {
      eof = 1;
      return -1;
    }
    ++nread;
    return byte();
  }

  int32_t byte() {
    unsigned char c;
    return read(fd_, &c, 1) == 1 ? c : -1;
  }

  int32_t readline(char* buf, int32_t n) {
    if (n == 1) buf[0] = '\0';
    if (n < 2) return 0;
    for (;;) {
      int32_t length = 0;
      int32_t last = -1;
      while (length < n - 1 && (last = line_byte()) != -1) {
        buf[length++] = static_cast<char>(last);
        if (last == '\n' || last == '\r') break;
      }
      const bool ended = last == '\n' || last == '\r';
      if (length == 0) return 0;
      if (length == 1 && ended) continue;
      buf[ended ? length - 1 : length] = '\0';
      return ended ? length - 1 : length;
    }
  }

  int32_t fgetc() {
    if (nread >= readlimit) return -1;
    ++nread;
    clear();
    return byte();
  }

  int64_t seek(int64_t offset, int32_t whence) {
    clear();
    nread = 0;
    return lseek64(fd_, offset, whence);
  }

  void skip(int64_t n) {
    if (nread >= readlimit) return;
    n = std::min(n, int64_t{readlimit} - nread);
    if (lseek64(fd_, n, SEEK_CUR) != -1) {
      nread += static_cast<uint32_t>(n);
      return;
    }
    char scratch[8192];
    while (n > 0) {
      const int32_t count =
          read_some(scratch, static_cast<int32_t>(std::min(n, int64_t{8192})));
      if (count <= 0) return;
      n -= count;
    }
  }

  void set_readlimit(int32_t limit) {
    readlimit = limit < 0 ? 0x7fffffffu : static_cast<uint32_t>(limit);
    nread = 0;
  }

  int64_t tell() {
    clear();
    return lseek64(fd_, 0, SEEK_CUR);
  }

  void clear() {
    error = URLERR_NONE;
    errno = 0;
  }

 private:
  int fd_;

 public:
  uint32_t readlimit;
  uint32_t nread = 0;
  int32_t eof = 0;
  int32_t error = 0;
};

struct Random {
  unsigned operator()() { return static_cast<unsigned>(engine()); }
  std::mt19937 engine{20260102};
};

std::string random_content(Random& random) {
  std::string content;
  const size_t size = random() % 4 == 0 ? random() % 20 : random() % 20000;
  const unsigned mean = 1u << random() % 13;
  const bool records = random() % 4 == 0;  // of one length, but for a few
  while (content.size() < size) {
    const unsigned length = random() % 16 == 0 ? random() % 9000
                            : records          ? mean
                                               : random() % (2 * mean);
    for (unsigned i = 0; i < length; ++i) {
      content += random() % 500 == 0 ? '\0' : static_cast<char>('A' + random() % 200);
    }
    content += records             ? "\n"
               : random() % 3 == 0 ? "\r\n"
               : random() % 4 == 0 ? "\r"
                                   : "\n";
  }
  content.resize(size);
  return content;
}

constexpr size_t kBufferSize = 10000;

// A stream over a file and the reference over the same file. Every operation runs on both,
// and must give the same result, errors, buffer and state.
class StreamAndReference {
 public:
  StreamAndReference(URL url, const std::string& path)
      : url_(url), fd_(::open(path.c_str(), O_RDONLY)), reference_(fd_, url->readlimit) {}
  ~StreamAndReference() { close(fd_); }
  StreamAndReference(const StreamAndReference&) = delete;
  StreamAndReference& operator=(const StreamAndReference&) = delete;

  // `before` is what the buffers hold beforehand, `size` that of the file.
  void run_random_operation(Random& random, const char* before, size_t size) {
    ours_.assign(before, before + kBufferSize);
    theirs_ = ours_;
    const auto n = static_cast<int32_t>(random() % 8 == 0 ? random() % 5
                                                          : random() % (kBufferSize - 2));
    const auto offset = static_cast<int64_t>(random() % (size + 20)) -
                        (random() % 4 == 0 ? static_cast<int32_t>(size) : 0);
    const unsigned operation = random() % 14;
    SCOPED_TRACE(testing::Message() << "operation " << operation << " n " << n);
    interruptions_ = random() % 16 == 0 ? static_cast<int>(random() % 4) : 0;
    run_operation(operation, n, offset, random);
    ASSERT_EQ(ours_, theirs_);
    ASSERT_EQ(position_of(url_), lseek64(fd_, 0, SEEK_CUR));
    ASSERT_EQ(url_->nread, reference_.nread);
    ASSERT_EQ(url_->eof, reference_.eof);
  }

 private:
  void run_operation(unsigned operation, int32_t n, int64_t offset, Random& random) {
    char* const buf = ours_.data();
    char* const their_buf = theirs_.data();
    switch (operation) {
      case 0:
        return both([&] { return url_read(url_, buf, n); },
                    [&] { return reference_.read_some(their_buf, n); });
      case 1:
        return both([&] { return url_fgetc(url_); }, [&] { return reference_.fgetc(); });
      case 2:
      case 8:
      case 9:
        return both([&] { return url_readline(url_, buf, n); },
                    [&] { return reference_.readline(their_buf, n); });
      case 3: {
        const auto whence = static_cast<int32_t>(random() % 3);
        return both([&] { return url_seek(url_, offset, whence); },
                    [&] { return reference_.seek(offset, whence); });
      }
      case 4:
        return both([&] { return url_skip(url_, offset / 4), 0; },
                    [&] { return reference_.skip(offset / 4), 0; });
      case 5: {
        const auto limit = static_cast<int32_t>(random() % 2 == 0 ? -1 : offset);
        return both([&] { return url_set_readlimit(url_, limit), 0; },
                    [&] { return reference_.set_readlimit(limit), 0; });
      }
      case 6:
        return both([&] { return url_tell(url_); }, [&] { return reference_.tell(); });
      case 7:
        return both([&] { return url_->gets(url_, buf, n) == buf; },
                    [&] { return reference_.gets_slot(their_buf, n); });
      default:
        return both([&] { return url_gets(url_, buf, n) == buf; },
                    [&] { return reference_.gets(their_buf, n); });
    }
  }

  template <typename OnUrl, typename OnReference>
  void both(OnUrl on_url, OnReference on_reference) {
    traffic.interruptions = interruptions_;
    set_errors();
    const auto result = on_url();
    const int our_errno = errno;
    const int32_t our_error = url_errno;
    traffic.interruptions = interruptions_;
    errno = kOtherErrno;
    reference_.error = kOtherError;
    const auto expected = on_reference();
    const int their_errno = errno;
    traffic.interruptions = 0;
    EXPECT_EQ(result, expected);
    EXPECT_EQ(our_errno, their_errno);
    EXPECT_EQ(our_error, reference_.error);
  }

  const URL url_;
  const int fd_;
  Reference reference_;
  std::vector<char> ours_;
  std::vector<char> theirs_;
  int interruptions_ = 0;  // so many reads of each fail first
};

TEST_F(FileStream, AgreesWithAReaderOfSingleBytesOverRandomOperations) {
  Random random;
  // Buffers hold another part of this before each step.
  std::vector<char> noise(2 * kBufferSize);
  for (char& c : noise) c = random() % 64 == 0 ? '\n' : static_cast<char>(random());
  for (int round = 0; round < 120; ++round) {
    const std::string content = random_content(random);
    const URL url = over(content);
    ASSERT_EQ(url->readlimit, content.size());
    StreamAndReference stream(url, directory_ / "file");
    if (round % 4 == 0) {
      traffic.error = EIO;
      traffic.bad_from = static_cast<int64_t>(random() % (content.size() + 1));
      traffic.bad_to = traffic.bad_from + static_cast<int64_t>(random() % 200);
    }
    for (int step = 0; step < 60; ++step) {
      SCOPED_TRACE(testing::Message() << "round " << round << " step " << step);
      stream.run_random_operation(random, &noise[random() % kBufferSize], content.size());
      ASSERT_FALSE(HasFailure());
    }
    close_all();
    reset_traffic();
  }
}

// ---- The view in memory -------------------------------------------------------------

class MemoryView : public FileStream {
 protected:
  // A stream over bytes in memory, without limit; they must outlive it.
  URL viewing(const std::string& bytes) {
    const URL url = over("of the file");
    url_set_readlimit(url, -1);
    file_of(url).data = reinterpret_cast<const uint8_t*>(bytes.data());
    file_of(url).size = static_cast<uint32_t>(bytes.size());
    reset_traffic();
    return url;
  }
  ~MemoryView() override { url_newline_code = 10; }
};

TEST_F(MemoryView, ReadsWithoutTheDescriptor) {
  const std::string bytes = "0123456789";
  const URL url = viewing(bytes);
  char buf[16] = "";
  EXPECT_EQ(url_read(url, buf, 4), 4);
  EXPECT_STREQ(buf, "0123");
  EXPECT_EQ(file_of(url).position, 4);
  EXPECT_EQ(url_fgetc(url), '4');
  EXPECT_EQ(url_read(url, buf, 16), 5);
  EXPECT_EQ(url_read(url, buf, 16), 0);
  EXPECT_EQ(url_fgetc(url), -1);
  EXPECT_EQ(traffic.reads + traffic.seeks, 0);
}

TEST_F(MemoryView, ReadsNothingWhenNothingIsAskedFor) {
  const std::string bytes = "0123456789";
  const URL url = viewing(bytes);
  char buf[1] = {'x'};
  for (const int32_t n : {0, -1, INT32_MIN}) EXPECT_EQ(url->read(url, buf, n), 0);
  EXPECT_EQ(buf[0], 'x');
  EXPECT_EQ(file_of(url).position, 0);
}

TEST_F(MemoryView, FgetcGivesBytesAbove127) {
  const std::string bytes = "\xff";
  EXPECT_EQ(url_fgetc(viewing(bytes)), 0xff);
}

TEST_F(MemoryView, LinesEndWithTheNewlineCodeOnly) {
  const std::string bytes = "a\rb\nc;d\nlast";
  const URL url = viewing(bytes);
  char buf[16];
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "a\rb\n");
  url_newline_code = ';';
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "c;");
  EXPECT_EQ(url_gets(url, buf, 16), buf);
  EXPECT_STREQ(buf, "d\nlast");  // terminated properly
  EXPECT_EQ(url_gets(url, buf, 16), nullptr);
}

TEST_F(MemoryView, LinesAreCutAtTheSizeOfTheBuffer) {
  const std::string bytes = "abcd\n";
  const URL url = viewing(bytes);
  char buf[6] = "12345";
  EXPECT_EQ(url_gets(url, buf, 5), buf);
  EXPECT_STREQ(buf, "abcd");
  EXPECT_EQ(buf[5], '\0');
  EXPECT_EQ(file_of(url).position, 4);
  EXPECT_EQ(url_gets(url, buf, 2), buf);
  EXPECT_STREQ(buf, "\n");
}

TEST_F(MemoryView, LineReaderChecksTheEndBeforeTheSize) {
  const std::string bytes = "ab";
  const URL url = viewing(bytes);
  char buf[2] = {'x', 'y'};
  EXPECT_EQ(url->gets(url, buf, 0), buf);
  EXPECT_EQ(url->gets(url, buf, -1), buf);
  EXPECT_EQ(buf[0], 'x');
  EXPECT_EQ(url->gets(url, buf, 1), buf);
  EXPECT_EQ(buf[0], '\0');
  EXPECT_EQ(buf[1], 'y');
  EXPECT_EQ(file_of(url).position, 0);
  file_of(url).position = 2;
  for (const int32_t n : {-1, 0, 1, 2}) EXPECT_EQ(url->gets(url, buf, n), nullptr);
}

TEST_F(MemoryView, SeeksWithinItsBytes) {
  const std::string bytes = "0123456789";
  const URL url = viewing(bytes);
  struct {
    int64_t offset;
    int32_t whence;
    int64_t position;
  } const moves[] = {
      {4, SEEK_SET, 4},
      {3, SEEK_CUR, 7},
      {-2, SEEK_CUR, 5},
      {-1, SEEK_END, 9},
      {5, 3, 9},
      {5, -1, 9},
      {1, SEEK_END, 10},
      {-11, SEEK_END, 0},
      {11, SEEK_SET, 10},
      {-1, SEEK_SET, 0},
      {10, SEEK_SET, 10},
      {0, SEEK_END, 10},
      {INT64_MAX, SEEK_CUR, 10},
      {INT64_MIN, SEEK_CUR, 0},
      {INT64_MAX, SEEK_END, 10},
  };
  for (const auto& [offset, whence, position] : moves) {
    EXPECT_EQ(url_seek(url, offset, whence), position) << offset << " " << whence;
    EXPECT_EQ(url_tell(url), position);
    EXPECT_EQ(file_of(url).position, position);
  }
  EXPECT_EQ(traffic.seeks, 0);
}

TEST_F(MemoryView, SeekOfAnUnknownKindStillPullsThePositionIntoTheView) {
  const std::string bytes = "0123456789";
  const URL url = viewing(bytes);
  file_of(url).position = 50;
  EXPECT_EQ(url_seek(url, 1, 9), 10);
  file_of(url).position = -50;
  EXPECT_EQ(url_seek(url, 1, 9), 0);
}

TEST_F(MemoryView, OutsideItsBytesIsAtItsEnd) {
  const std::string bytes = "0123456789";
  const URL url = viewing(bytes);
  char buf[8];
  for (const int64_t position : {int64_t{11}, int64_t{-1}, INT64_MAX, INT64_MIN}) {
    file_of(url).position = position;
    EXPECT_EQ(url_read(url, buf, 8), 0);
    EXPECT_EQ(url_fgetc(url), -1);
    EXPECT_EQ(url_gets(url, buf, 8), nullptr);
    EXPECT_EQ(file_of(url).position, position);
  }
}

TEST_F(MemoryView, CloseClosesTheDescriptorAndLeavesTheBytes) {
  const std::string bytes = "0123456789";
  const int before = test::count_open_descriptors();
  viewing(bytes);
  close_all();
  EXPECT_EQ(test::count_open_descriptors(), before);
}

TEST(FileStreamCancellation, AThreadThatIsToBeCancelledClosesItsStreamFirst) {
  const test::TemporaryDirectory directory;
  const std::string path = directory.write("f", "abc");
  const int before = test::count_open_descriptors();
  const URL url = url_file_open(path.c_str());
  ASSERT_NE(url, nullptr);
  pthread_t thread;
  const auto close_stream = [](void* opened) -> void* {
    pthread_cancel(pthread_self());
    url_close(static_cast<URL>(opened));
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, nullptr, close_stream, url), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  EXPECT_EQ(test::count_open_descriptors(), before);
}

}  // namespace
