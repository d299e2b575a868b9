// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <string>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>

#include "safe/file_support.h"
#include "support/descriptors.h"
#include "support/log_capture.h"
#include "support/next_function.h"

using namespace test;
using Lines = std::vector<std::string>;
using Names = std::vector<std::string>;

namespace {

// Seconds beyond the 32 bits of a signed time.
constexpr int64_t kAfter2038 = 5'000'000'000;

bool is_watching = false;
int reads = 0;
int failing_read = 0;  // this call of read() fails; 0 for none
int read_error = 0;
int failing_fsync = 0;
void (*on_fsync)(int descriptor) = nullptr;
void (*after_stat)(const char* path) = nullptr;
int opened_sources = 0;

struct Watch {
  Watch() {
    is_watching = true;
    opened_sources = 0;
    after_stat = nullptr;
    reads = failing_read = read_error = failing_fsync = 0;
    on_fsync = nullptr;
  }
  ~Watch() { is_watching = false; }
};

int duplicate(const std::string& from, const std::string& to) {
  errno = 0;
  return g_file_duplicate(from.c_str(), to.c_str());
}

int error_as_user(const std::string& from, const std::string& to) {
  return errno_as_user([&] { return duplicate(from, to) == -1 ? errno : 0; });
}

void set_times(const std::string& path, int64_t accessed, int64_t modified) {
  const timespec times[2] = {{static_cast<time_t>(accessed), 123'456'789},
                             {static_cast<time_t>(modified), 987'654'321}};
  EXPECT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

bool is_same_time(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

#ifdef __GLIBC__
constexpr const char* kStat = sizeof(long) == 4 ? "__stat64_time64" : "stat";
#else
constexpr const char* kStat = sizeof(long) == 4 ? "__stat_time64" : "stat";
#endif

extern "C" ssize_t read(int descriptor, void* data, size_t size) {
  static const auto real = test::next_function<ssize_t(int, void*, size_t)>("read");
  if (is_watching && ++reads == failing_read) {
    errno = read_error;
    return -1;
  }
  return real(descriptor, data, size);
}

extern "C" int fsync(int descriptor) {
  static const auto real = test::next_function<int(int)>("fsync");
  if (is_watching && on_fsync != nullptr) on_fsync(descriptor);
  if (is_watching && failing_fsync > 0 && --failing_fsync == 0) {
    errno = EIO;
    return -1;
  }
  return real(descriptor);
}

// On 32-bit targets the library's struct stat has 64-bit times.
extern "C" int stat(const char* path, struct stat* status) noexcept {
  static const auto real = test::next_function<int(const char*, struct stat*)>(kStat);
  const int result = real(path, status);
  if (is_watching && after_stat != nullptr) after_stat(path);
  return result;
}

extern "C" int openat(int directory, const char* path, int flags, ...) {
  static const auto real = test::next_function<int(int, const char*, int, ...)>("openat64");
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list args;
    va_start(args, flags);
    mode = va_arg(args, mode_t);
    va_end(args);
  }
  if (is_watching && (flags & (O_ACCMODE | O_DIRECTORY | O_PATH)) == O_RDONLY) {
    ++opened_sources;
  }
  return real(directory, path, flags, mode);
}

TEST(FileDuplicate, FailedChecksAreReportedInOrderAndSetErrno) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  LogCapture log;
  errno = 0;
  EXPECT_EQ(g_file_duplicate(nullptr, nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "from != NULL")});
  errno = 0;
  EXPECT_EQ(g_file_duplicate(path.c_str(), nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "to != NULL")});
}

TEST(FileDuplicate, FailuresOfTheSystemAreNotLogged) {
  LogCapture log;
  EXPECT_EQ(duplicate("/nowhere/f", "/nowhere/g"), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FileDuplicate, CopiesContentOfAnyLength) {
  for (const size_t size : {0, 1, 8191, 8192, 8193, 100'000}) {
    const TemporaryDirectory directory;
    std::string content;
    for (size_t i = 0; i < size; ++i) content += static_cast<char>(i * 7 % 251);
    const std::string from = directory.write("from", content);
    EXPECT_EQ(duplicate(from, directory / "to"), 0);
    EXPECT_EQ(read_file(directory / "to"), content);
    EXPECT_EQ(names_in(directory.path()), (Names{"from", "to"}));
  }
}

TEST(FileDuplicate, CopiesUpToTheEndThatReadingShows) {
  // Files of the kernel say that they are empty.
  const TemporaryDirectory directory;
  EXPECT_EQ(status_of("/proc/version").st_size, 0);
  EXPECT_EQ(duplicate("/proc/version", directory / "to"), 0);
  EXPECT_EQ(read_file(directory / "to"), read_file("/proc/version"));
}

TEST(FileDuplicate, ReplacesALongerFile) {
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", "new");
  const std::string to = directory.write("to", "a longer old content");
  EXPECT_EQ(duplicate(from, to), 0);
  EXPECT_EQ(read_file(to), "new");
}

TEST(FileDuplicate, CopyHasTheModeWithoutSetIdBitsWhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{077}}) {
    for (const mode_t mode : {0600, 0644, 0666, 0777, 0440, 04755, 02755, 06711, 01644}) {
      for (const bool is_there : {false, true}) {
        const TemporaryDirectory directory;
        const std::string from = directory.write("from", "new");
        if (is_there) directory.write("to", "old");
        ASSERT_EQ(chmod(from.c_str(), mode), 0);
        const Umask umask(mask);
        EXPECT_EQ(duplicate(from, directory / "to"), 0);
        EXPECT_EQ(mode_of(directory / "to"), mode_of(from) & ~mode_t{06000});
      }
    }
  }
}

TEST(FileDuplicate, SetIdBitsOfThePreviousFileAreDropped) {
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", "new");
  const std::string to = directory.write("to", "old");
  ASSERT_EQ(chmod(from.c_str(), 0711), 0);
  ASSERT_EQ(chmod(to.c_str(), 06755), 0);
  EXPECT_EQ(duplicate(from, to), 0);
  EXPECT_EQ(mode_of(to), mode_t{0711});
}

TEST(FileDuplicate, CopyHasBothTimes) {
  const int64_t times[][2] = {{1'000'000'000, 1'234'567'890},
                              {1'234'567'890, 1'000'000'000},
                              {kAfter2038, kAfter2038 + 1},
                              {0, 0}};
  for (const auto& [accessed, modified] : times) {
    const TemporaryDirectory directory;
    const std::string from = directory.write("from", "new");
    set_times(from, accessed, modified);
    const struct stat before = status_of(from);
    EXPECT_EQ(duplicate(from, directory / "to"), 0);
    const struct stat copy = status_of(directory / "to");
    EXPECT_TRUE(is_same_time(copy.st_atim, before.st_atim));
    EXPECT_TRUE(is_same_time(copy.st_mtim, before.st_mtim));
  }
}

TEST(FileDuplicate, TimesAndModeAreThereBeforeTheSync) {
  static struct stat synced;
  static bool is_first;
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", "new");
  ASSERT_EQ(chmod(from.c_str(), 0751), 0);
  set_times(from, 1'000'000'000, 1'000'000'001);
  const Watch watch;
  is_first = true;
  on_fsync = [](int descriptor) {
    if (is_first) fstat(descriptor, &synced);
    is_first = false;
  };
  EXPECT_EQ(duplicate(from, directory / "to"), 0);
  EXPECT_EQ(synced.st_mode & 07777, mode_t{0751});
  EXPECT_EQ(synced.st_atim.tv_sec, 1'000'000'000);
  EXPECT_EQ(synced.st_mtim.tv_sec, 1'000'000'001);
  EXPECT_EQ(synced.st_size, 3);
}

TEST(FileDuplicate, ExistingFileKeepsItsOwner) {
  SKIP_UNLESS_ROOT("cannot give a file to somebody else");
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", "new");
  const std::string to = directory.write("to", "old");
  ASSERT_EQ(chmod(from.c_str(), 0750), 0);
  ASSERT_EQ(chown(from.c_str(), kUser + 1, kGroup + 1), 0);
  ASSERT_EQ(chown(to.c_str(), kUser, kGroup), 0);
  EXPECT_EQ(duplicate(from, to), 0);
  EXPECT_EQ(status_of(to).st_uid, kUser);
  EXPECT_EQ(status_of(to).st_gid, kGroup);
  EXPECT_EQ(mode_of(to), mode_t{0750});
}

TEST(FileDuplicate, NewFileBelongsToTheCaller) {
  SKIP_UNLESS_ROOT("cannot give a file to somebody else");
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", "new");
  ASSERT_EQ(chown(from.c_str(), kUser + 1, kGroup + 1), 0);
  EXPECT_EQ(duplicate(from, directory / "to"), 0);
  EXPECT_EQ(status_of(directory / "to").st_uid, geteuid());
  EXPECT_EQ(status_of(directory / "to").st_gid, getegid());
}

TEST(FileDuplicate, OwnerThatCannotBeKeptIsEpermAndLeavesTheFile) {
  SKIP_UNLESS_ROOT("has no file of somebody else");
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", "new");
  const std::string to = directory.write("to", "old");
  ASSERT_EQ(chown(directory.path().c_str(), kUser, kGroup), 0);
  ASSERT_EQ(chown(to.c_str(), kUser + 1, kGroup), 0);
  EXPECT_EQ(error_as_user(from, to), EPERM);
  EXPECT_EQ(read_file(to), "old");
  EXPECT_EQ(names_in(directory.path()), (Names{"from", "to"}));
}

TEST(FileDuplicate, OrdinaryUserCopiesAForeignFile) {
  SKIP_UNLESS_ROOT("has no file of somebody else");
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", "new");
  ASSERT_EQ(chmod(from.c_str(), 04755), 0);
  set_times(from, 1'000'000'000, 1'000'000'001);
  ASSERT_EQ(chown(directory.path().c_str(), kUser, kGroup), 0);
  EXPECT_EQ(error_as_user(from, directory / "to"), 0);
  EXPECT_EQ(status_of(directory / "to").st_uid, kUser);
  EXPECT_EQ(mode_of(directory / "to"), mode_t{0755});
  EXPECT_EQ(status_of(directory / "to").st_mtim.tv_sec, 1'000'000'001);
}

TEST(FileDuplicate, SourceMustBeOrLeadToARegularFile) {
  const TemporaryDirectory directory;
  ASSERT_EQ(mkdir((directory / "d").c_str(), 0755), 0);
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0644), 0);  // must not be waited for
  ASSERT_EQ(symlink("d", (directory / "to-d").c_str()), 0);
  ASSERT_EQ(symlink("fifo", (directory / "to-fifo").c_str()), 0);
  ASSERT_EQ(symlink("missing", (directory / "to-nothing").c_str()), 0);
  const struct {
    std::string from;
    int error;
  } cases[] = {
      {directory / "d", EISDIR},
      {directory / "to-d", EISDIR},
      {directory / "fifo", EINVAL},
      {directory / "to-fifo", EINVAL},
      {"/dev/null", EINVAL},
      {directory / "missing", ENOENT},
      {directory / "to-nothing", ENOENT},
      {"", ENOENT},
  };
  const Names before = names_in(directory.path());
  for (const auto& [from, error] : cases) {
    EXPECT_EQ(duplicate(from, directory / "to"), -1) << from;
    EXPECT_EQ(errno, error) << from;
  }
  EXPECT_EQ(names_in(directory.path()), before);
}

TEST(FileDuplicate, SourceThatIsNoRegularFileIsNotEvenOpened) {
  // Opening alone rewinds a tape, starts a watchdog or lets the writer of a FIFO go on.
  const TemporaryDirectory directory;
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0644), 0);
  const Watch watch;
  EXPECT_EQ(duplicate(directory / "fifo", directory / "to"), -1);
  EXPECT_EQ(duplicate("/dev/null", directory / "to"), -1);
  EXPECT_EQ(opened_sources, 0);
  EXPECT_EQ(duplicate(directory.write("f", "x"), directory / "to"), 0);
  EXPECT_EQ(opened_sources, 1);
}

TEST(FileDuplicate, SourceThatBecomesAFifoMeanwhileIsNotWaitedFor) {
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", "x");
  const Watch watch;
  after_stat = [](const char* path) {
    after_stat = nullptr;
    EXPECT_EQ(unlink(path), 0);
    EXPECT_EQ(mkfifo(path, 0644), 0);
  };
  EXPECT_EQ(duplicate(from, directory / "to"), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(names_in(directory.path()), Names{"from"});
}

TEST(FileDuplicate, SourceMayBeALink) {
  const TemporaryDirectory directory;
  directory.write("from", "new");
  ASSERT_EQ(symlink("from", (directory / "link").c_str()), 0);
  EXPECT_EQ(duplicate(directory / "link", directory / "to"), 0);
  EXPECT_EQ(read_file(directory / "to"), "new");
  EXPECT_TRUE(S_ISREG(status_of(directory / "to").st_mode));
}

TEST(FileDuplicate, LinkAsTargetStaysAndWhatItLeadsToIsReplaced) {
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", "new");
  directory.write("to", "old");
  ASSERT_EQ(symlink("to", (directory / "link").c_str()), 0);
  EXPECT_EQ(duplicate(from, directory / "link"), 0);
  EXPECT_EQ(read_file(directory / "to"), "new");
  EXPECT_TRUE(S_ISLNK(status_of(directory / "link").st_mode));
}

TEST(FileDuplicate, TargetThatIsNoRegularFileFails) {
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", "new");
  ASSERT_EQ(mkdir((directory / "d").c_str(), 0755), 0);
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0644), 0);
  ASSERT_EQ(symlink("missing", (directory / "link").c_str()), 0);
  EXPECT_EQ(duplicate(from, directory / "d"), -1);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(duplicate(from, directory / "fifo"), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(duplicate(from, directory / "link"), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(FileDuplicate, SameFileTwiceIsEinvalByWhateverName) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  ASSERT_EQ(link(path.c_str(), (directory / "hard").c_str()), 0);
  ASSERT_EQ(symlink("f", (directory / "soft").c_str()), 0);
  for (const char* const name : {"f", "hard", "soft", "./f"}) {
    EXPECT_EQ(duplicate(path, directory / name), -1) << name;
    EXPECT_EQ(errno, EINVAL) << name;
    EXPECT_EQ(duplicate(directory / name, path), -1) << name;
    EXPECT_EQ(errno, EINVAL) << name;
  }
  EXPECT_EQ(read_file(path), "old");
  EXPECT_EQ(names_in(directory.path()), (Names{"f", "hard", "soft"}));
}

TEST(FileDuplicate, TemporaryFileOfTheTargetIsNoSource) {
  // It would be removed to make room, and lost when the copy fails.
  const TemporaryDirectory directory;
  const std::string from = directory.write(".f.new", "left by a power cut");
  directory.write("f", "old");
  for (const char* const name : {"f", "g"}) {
    const std::string left = directory.write("." + std::string(name) + ".new", "left");
    EXPECT_EQ(duplicate(left, directory / name), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(read_file(left), "left");
  }
  EXPECT_EQ(read_file(directory / "f"), "old");
}

TEST(FileDuplicate, FailedReadIsNoShortCopy) {
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", std::string(20'000, 'n'));
  const std::string to = directory.write("to", "old");
  for (const int nth : {1, 2, 3, 4}) {
    const int descriptors = lowest_free_descriptor();
    const Watch watch;
    failing_read = nth;
    read_error = EIO;
    EXPECT_EQ(duplicate(from, to), -1) << nth;
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(read_file(to), "old");
    EXPECT_EQ(names_in(directory.path()), (Names{"from", "to"}));
    EXPECT_EQ(lowest_free_descriptor(), descriptors);
  }
}

TEST(FileDuplicate, InterruptedReadGoesOn) {
  const TemporaryDirectory directory;
  const std::string content(20'000, 'n');
  const std::string from = directory.write("from", content);
  for (const int nth : {1, 2, 3, 4}) {
    const Watch watch;
    failing_read = nth;
    read_error = EINTR;
    EXPECT_EQ(duplicate(from, directory / "to"), 0) << nth;
    EXPECT_EQ(read_file(directory / "to"), content);
  }
}

TEST(FileDuplicate, FailedSyncsGiveTheResultsOfAReplacement) {
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", "new");
  const std::string to = directory.write("to", "old");
  {
    const Watch watch;
    failing_fsync = 1;
    EXPECT_EQ(duplicate(from, to), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(read_file(to), "old");
  }
  const Watch watch;
  failing_fsync = 2;
  EXPECT_EQ(duplicate(from, to), 1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(read_file(to), "new");
}

TEST(FileDuplicate, UnreadableSourceLeavesTheTarget) {
  SKIP_UNLESS_ROOT("reads all its own files");
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", "new");
  const std::string to = directory.write("to", "old");
  ASSERT_EQ(chmod(from.c_str(), 0600), 0);
  ASSERT_EQ(chown(directory.path().c_str(), kUser, kGroup), 0);
  ASSERT_EQ(chown(to.c_str(), kUser, kGroup), 0);
  EXPECT_EQ(error_as_user(from, to), EACCES);
  EXPECT_EQ(read_file(to), "old");
}

struct CancelledCall {
  std::string from;
  std::string to;
  int result = -2;
  bool is_past = false;
};

// The cancelled thread leaves the function, and the sanitizer does not see it go.
[[gnu::no_sanitize_address]] void* duplicate_when_cancelled(void* argument) {
  auto& call = *static_cast<CancelledCall*>(argument);
  pthread_cancel(pthread_self());
  call.result = duplicate(call.from, call.to);
  pthread_testcancel();
  call.is_past = true;
  return nullptr;
}

TEST(FileDuplicate, CancellationWaitsUntilItReturns) {
  const TemporaryDirectory directory;
  CancelledCall call{directory.write("from", "new"), directory / "to"};
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, nullptr, duplicate_when_cancelled, &call), 0);
  void* returned = nullptr;
  ASSERT_EQ(pthread_join(thread, &returned), 0);
  EXPECT_EQ(returned, PTHREAD_CANCELED);
  EXPECT_EQ(call.result, 0);
  EXPECT_FALSE(call.is_past);
  EXPECT_EQ(read_file(call.to), "new");
}

TEST(FileDuplicate, DescriptorsAreNeverTheStandardOnes) {
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", "new");
  const std::string to = directory / "to";
  EXPECT_EQ(status_in_child([&] {
              close(0);
              close(1);
              close(2);
              const Watch watch;
              on_fsync = [](int) {
                for (int number = 0; number < 3; ++number) {
                  if (fcntl(number, F_GETFD) != -1) _exit(50 + number);
                }
              };
              return duplicate(from, to);
            }),
            0);
  EXPECT_EQ(read_file(to), "new");
}

TEST(FileDuplicate, LeavesNoDescriptorOpen) {
  const TemporaryDirectory directory;
  const std::string from = directory.write("from", "new");
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0644), 0);
  const int descriptors = lowest_free_descriptor();
  for (const char* const name : {"to", "from", "fifo", "missing/to", ""}) {
    duplicate(from, directory / name);
    EXPECT_EQ(lowest_free_descriptor(), descriptors) << name;
  }
}
