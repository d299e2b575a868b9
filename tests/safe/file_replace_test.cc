// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/statvfs.h>
#include <sys/un.h>

#include "safe/file_support.h"
#include "support/allocation_faults.h"
#include "support/descriptors.h"
#include "support/log_capture.h"
#include "support/next_function.h"

using namespace test;
using Lines = std::vector<std::string>;
using Names = std::vector<std::string>;

namespace {

// What write() and fsync() of the library do besides, or instead.
bool is_watching = false;
void (*on_write)(int descriptor) = nullptr;
int interrupted_writes = 0;  // this many come first
int write_error = 0;
int fsync_calls = 0;
int failing_fsync = 0;  // this call of fsync() fails; 0 for none
int fsync_error = 0;
int renames_refused = 0;
int stat_error = 0;
int close_error = 0;  // of the first close() of a regular file
void (*on_flock)() = nullptr;
bool ignores_modes = false;
size_t longest_name = 0;  // that the filesystem takes; 0 for the real one
size_t told_longest = 0;  // what fstatvfs() says; 0 if it fails

struct Watch {
  Watch() {
    is_watching = true;
    on_write = nullptr;
    on_flock = nullptr;
    interrupted_writes = write_error = close_error = stat_error = 0;
    fsync_calls = failing_fsync = fsync_error = renames_refused = 0;
    ignores_modes = false;
    longest_name = 0;
  }
  ~Watch() { is_watching = false; }
};

int replace(const std::string& path, const std::string& content) {
  errno = 0;
  return g_file_replace(path.c_str(), content.data(), static_cast<int64_t>(content.size()));
}

// As an ordinary user, in a child: 0, or errno.
int error_as_user(const std::string& path, const std::string& content) {
  return status_in_child([&] { return replace(path, content) == -1 ? errno : 0; }, true);
}

}  // namespace

extern "C" ssize_t write(int descriptor, const void* data, size_t size) {
  static const auto real = test::next_function<ssize_t(int, const void*, size_t)>("write");
  if (is_watching) {
    if (on_write != nullptr) on_write(descriptor);
    if (interrupted_writes > 0) {
      --interrupted_writes;
      errno = EINTR;
      return -1;
    }
    if (write_error != 0) {
      errno = write_error;
      return -1;
    }
    size = size > 3 ? size / 2 : size;  // short, as on a full device or after a signal
  }
  return real(descriptor, data, size);
}

extern "C" int fsync(int descriptor) {
  static const auto real = test::next_function<int(int)>("fsync");
  if (is_watching && ++fsync_calls == failing_fsync) {
    errno = fsync_error;
    return -1;
  }
  return real(descriptor);
}

extern "C" int renameat(int from_at, const char* from, int to_at, const char* to) noexcept {
  static const auto real =
      test::next_function<int(int, const char*, int, const char*)>("renameat");
  if (is_watching && renames_refused > 0) {
    --renames_refused;
    errno = ENOSPC;
    return -1;
  }
  return real(from_at, from, to_at, to);
}

extern "C" int close(int descriptor) {
  static const auto real = test::next_function<int(int)>("close");
  struct stat status;
  const bool is_file =
      is_watching && fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
  const int result = real(descriptor);
  if (!is_file || close_error == 0) return result;
  errno = close_error;
  close_error = 0;
  return -1;
}

// On 32-bit targets the library's struct stat has 64-bit times.
#if __SIZEOF_LONG__ == 8
constexpr char kStat[] = "stat";
#elif defined(__GLIBC__)
constexpr char kStat[] = "__stat64_time64";
#else
constexpr char kStat[] = "__stat_time64";
#endif

extern "C" int stat(const char* path, struct stat* status) noexcept {
  static const auto real = test::next_function<int(const char*, struct stat*)>(kStat);
  if (is_watching && stat_error != 0) {
    errno = stat_error;
    return -1;
  }
  return real(path, status);
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
  const bool is_new = (flags & O_CREAT) != 0;
  if (is_watching && is_new && longest_name != 0 && std::strlen(path) > longest_name) {
    errno = ENAMETOOLONG;
    return -1;
  }
  return real(directory, path, flags, mode);
}

extern "C" int fchmod(int descriptor, mode_t mode) noexcept {
  static const auto real = test::next_function<int(int, mode_t)>("fchmod");
  return is_watching && ignores_modes ? 0 : real(descriptor, mode);
}

#if __SIZEOF_LONG__ == 4 && defined(__GLIBC__)
constexpr char kFstatvfs[] = "fstatvfs64";
#else
constexpr char kFstatvfs[] = "fstatvfs";
#endif

extern "C" int fstatvfs(int descriptor, struct statvfs* filesystem) noexcept {
  static const auto real = test::next_function<int(int, struct statvfs*)>(kFstatvfs);
  const int result = real(descriptor, filesystem);
  if (is_watching && longest_name != 0) {
    filesystem->f_namemax = told_longest;
    if (told_longest == 0) {
      errno = EIO;
      return -1;
    }
  }
  return result;
}

extern "C" int flock(int descriptor, int operation) noexcept {
  static const auto real = test::next_function<int(int, int)>("flock");
  if (is_watching && on_flock != nullptr && (operation & LOCK_EX) != 0) on_flock();
  return real(descriptor, operation);
}

// --- Arguments.

TEST(FileReplace, FailedChecksAreReportedInOrderAndSetErrno) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  LogCapture log;
  errno = 0;
  EXPECT_EQ(g_file_replace(nullptr, nullptr, -1), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "path != NULL")});
  errno = 0;
  EXPECT_EQ(g_file_replace(path.c_str(), nullptr, -1), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "len >= 0")});
  errno = 0;
  EXPECT_EQ(g_file_replace(path.c_str(), nullptr, 1), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "(buf != NULL) || (len == 0)")});
  EXPECT_EQ(read_file(path), "old");
}

TEST(FileReplace, NothingMayBeWrittenFromNoBuffer) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  EXPECT_EQ(g_file_replace(path.c_str(), nullptr, 0), 0);
  EXPECT_EQ(read_file(path), "");
}

TEST(FileReplace, FailuresOfTheSystemAreNotLogged) {
  LogCapture log;
  EXPECT_EQ(replace("/nowhere/at/all", "x"), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(log.take(), Lines{});
}

TEST(FileReplace, LengthBeyondTheMemoryOfTheProcessIsNotCut) {
  if (sizeof(void*) == 8) GTEST_SKIP() << "memory may have any length on 64-bit targets";
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  errno = 0;
  EXPECT_EQ(g_file_replace(path.c_str(), "abcde", (int64_t{1} << 32) + 5), -1);
  EXPECT_EQ(errno, EFAULT);
  EXPECT_EQ(read_file(path), "old");
  EXPECT_EQ(names_in(directory.path()), Names{"f"});
}

// --- Content and mode.

TEST(FileReplace, ReplacesAllOfTheContent) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "a longer old content");
  EXPECT_EQ(replace(path, "new"), 0);
  EXPECT_EQ(read_file(path), "new");
  EXPECT_EQ(names_in(directory.path()), Names{"f"});
}

TEST(FileReplace, WritesLargeContentInPieces) {
  const TemporaryDirectory directory;
  std::string content;
  for (int i = 0; i < 200'000; ++i) content += static_cast<char>(i * 7 % 251);
  const Watch watch;
  EXPECT_EQ(replace(directory / "f", content), 0);
  EXPECT_EQ(read_file(directory / "f"), content);
}

TEST(FileReplace, NewFileGets0644LessTheUmask) {
  for (const auto& [mask, mode] : {std::pair<mode_t, mode_t>{0, 0644},
                                   {022, 0644},
                                   {027, 0640},
                                   {077, 0600},
                                   {0266, 0400}}) {
    const TemporaryDirectory directory;
    const Umask umask(mask);
    EXPECT_EQ(replace(directory / "f", "x"), 0);
    EXPECT_EQ(mode_of(directory / "f"), mode);
  }
}

TEST(FileReplace, ExistingFileKeepsItsModeWhateverTheUmask) {
  for (const mode_t mode : {0600, 0644, 0666, 0755, 0640, 0060, 0400, 06711, 01644}) {
    const TemporaryDirectory directory;
    const std::string path = directory.write("f", "old");
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    if (mode_of(path) != mode) continue;  // not every user may set each bit
    const Umask umask(077);
    EXPECT_EQ(replace(path, "new"), 0);
    EXPECT_EQ(mode_of(path), mode);
  }
}

TEST(FileReplace, LeavesTheUmaskAlone) {
  const TemporaryDirectory directory;
  const Umask mask(0123);
  EXPECT_EQ(replace(directory / "f", "x"), 0);
  EXPECT_EQ(umask(0123), mode_t{0123});
}

TEST(FileReplace, TemporaryFileIsForItsOwnerAlone) {
  static mode_t mode = 0;
  for (const mode_t wanted : {0666, 0640, 0444, 0060, 0777}) {
    const TemporaryDirectory directory;
    const std::string path = directory.write("f", "old");
    ASSERT_EQ(chmod(path.c_str(), wanted), 0);
    const Umask umask(0);
    const Watch watch;
    on_write = [](int descriptor) {
      struct stat status;
      if (fstat(descriptor, &status) == 0) mode = status.st_mode & 07777;
    };
    mode = 07777;
    EXPECT_EQ(replace(path, "new"), 0);
    EXPECT_EQ(mode & ~(wanted & 0700), mode_t{0}) << std::oct << mode;
  }
}

TEST(FileReplace, ReadOnlyFileIsReplacedByAnOrdinaryUser) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  ASSERT_EQ(chmod(path.c_str(), 0444), 0);
  if (geteuid() == 0) {
    ASSERT_EQ(chown(path.c_str(), kUser, kGroup), 0);
    ASSERT_EQ(chown(directory.path().c_str(), kUser, kGroup), 0);
  }
  EXPECT_EQ(error_as_user(path, "new"), 0);
  EXPECT_EQ(read_file(path), "new");
  EXPECT_EQ(mode_of(path), mode_t{0444});
}

TEST(FileReplace, OtherHardLinksKeepTheOldContent) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  ASSERT_EQ(link(path.c_str(), (directory / "g").c_str()), 0);
  EXPECT_EQ(replace(path, "new"), 0);
  EXPECT_EQ(read_file(path), "new");
  EXPECT_EQ(read_file(directory / "g"), "old");
}

// --- Owner.

TEST(FileReplace, KeepsUserAndGroupAndSetIdBits) {
  SKIP_UNLESS_ROOT("cannot give a file to somebody else");
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  ASSERT_EQ(chown(path.c_str(), kUser, kGroup), 0);
  ASSERT_EQ(chmod(path.c_str(), 06750), 0);
  EXPECT_EQ(replace(path, "new"), 0);
  EXPECT_EQ(status_of(path).st_uid, kUser);
  EXPECT_EQ(status_of(path).st_gid, kGroup);
  EXPECT_EQ(mode_of(path), mode_t{06750});
}

TEST(FileReplace, KeepsTheOwnerOfAFileThatHasTheModeAlready) {
  SKIP_UNLESS_ROOT("cannot give a file to somebody else");
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  ASSERT_EQ(chown(path.c_str(), kUser, getegid()), 0);
  EXPECT_EQ(replace(path, "new"), 0);
  EXPECT_EQ(status_of(path).st_uid, kUser);
  ASSERT_EQ(chown(path.c_str(), geteuid(), kGroup), 0);
  EXPECT_EQ(replace(path, "newer"), 0);
  EXPECT_EQ(status_of(path).st_gid, kGroup);
}

// A directory that belongs to kUser, with the file "f" of the given owner in it.
class ForeignFile {
 public:
  ForeignFile(uid_t user, gid_t group, mode_t directory_mode = 0755) {
    path_ = directory_.write("f", "old");
    EXPECT_EQ(chown(directory_.path().c_str(), kUser, kGroup + 1), 0);
    EXPECT_EQ(chmod(directory_.path().c_str(), directory_mode), 0);
    EXPECT_EQ(chown(path_.c_str(), user, group), 0);
  }
  const std::string& path() const { return path_; }
  void expect_untouched() const {
    EXPECT_EQ(read_file(path_), "old");
    EXPECT_EQ(names_in(directory_.path()), Names{"f"});
  }

 private:
  TemporaryDirectory directory_;
  std::string path_;
};

TEST(FileReplace, UserThatCannotBeKeptIsEpermAndLeavesTheFile) {
  SKIP_UNLESS_ROOT("has no file of somebody else");
  const ForeignFile file(kUser + 1, kGroup);
  EXPECT_EQ(error_as_user(file.path(), "new"), EPERM);
  file.expect_untouched();
}

TEST(FileReplace, GroupThatCannotBeKeptIsEpermAndLeavesTheFile) {
  SKIP_UNLESS_ROOT("has no file of another group");
  const ForeignFile file(kUser, kGroup + 1);
  EXPECT_EQ(error_as_user(file.path(), "new"), EPERM);
  file.expect_untouched();
}

TEST(FileReplace, SetGroupIdBitThatTheSystemDropsIsEperm) {
  SKIP_UNLESS_ROOT("has no file of another group");
  // New files get the directory's group; the bit is silently refused to who is not in it.
  const ForeignFile file(kUser, kGroup + 1, 02777);
  ASSERT_EQ(chmod(file.path().c_str(), 02755), 0);
  EXPECT_EQ(error_as_user(file.path(), "new"), EPERM);
  file.expect_untouched();
}

TEST(FileReplace, ModeThatTheFilesystemDropsIsEperm) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  ASSERT_EQ(chmod(path.c_str(), 0666), 0);
  {
    const Watch watch;
    ignores_modes = true;
    EXPECT_EQ(replace(path, "new"), -1);
    EXPECT_EQ(errno, EPERM);
  }
  EXPECT_EQ(names_in(directory.path()), Names{"f"});
  EXPECT_EQ(read_file(path), "old");
}

TEST(FileReplace, GroupOfTheDirectoryNeedsNoMembership) {
  SKIP_UNLESS_ROOT("has no file of another group");
  const ForeignFile file(kUser, kGroup + 1, 02777);
  EXPECT_EQ(error_as_user(file.path(), "new"), 0);
  EXPECT_EQ(read_file(file.path()), "new");
  EXPECT_EQ(status_of(file.path()).st_gid, kGroup + 1);
}

TEST(FileReplace, DirectoryThatCannotBeOpenedOrWrittenGivesItsErrno) {
  SKIP_UNLESS_ROOT("nothing is refused to an ordinary user of its own");
  for (const mode_t mode : {0311, 0511, 0644}) {
    const ForeignFile file(kUser, kGroup, mode);
    EXPECT_EQ(error_as_user(file.path(), "new"), EACCES);
    file.expect_untouched();
  }
}

// --- What the path leads to.

TEST(FileReplace, DirectoriesAreEisdir) {
  const TemporaryDirectory directory;
  ASSERT_EQ(mkdir((directory / "d").c_str(), 0755), 0);
  ASSERT_EQ(symlink("d", (directory / "link").c_str()), 0);
  for (const std::string& path :
       {directory / "d", directory / "d/", directory / "d//", directory / "link",
        directory / "link/", directory / ".", directory / "d/..", std::string("/"),
        std::string("."), std::string(".."), std::string("//")}) {
    EXPECT_EQ(replace(path, "x"), -1) << path;
    EXPECT_EQ(errno, EISDIR) << path;
  }
  EXPECT_EQ(names_in(directory.path()), (Names{"d", "link"}));
}

TEST(FileReplace, PathsThatCannotNameAFileFail) {
  const TemporaryDirectory directory;
  directory.write("f", "old");
  const struct {
    std::string path;
    int error;
  } cases[] = {
      {"", ENOENT},
      {directory / "missing/", ENOENT},
      {directory / "missing/f", ENOENT},
      {directory / "f/", ENOTDIR},
      {directory / "f/g", ENOTDIR},
      {directory / std::string(256, 'n'), ENAMETOOLONG},
      {"/" + std::string(PATH_MAX, '/') + "f", ENAMETOOLONG},
  };
  for (const auto& [path, error] : cases) {
    EXPECT_EQ(replace(path, "x"), -1) << path;
    EXPECT_EQ(errno, error) << path;
  }
  EXPECT_EQ(names_in(directory.path()), Names{"f"});
  EXPECT_EQ(read_file(directory / "f"), "old");
}

TEST(FileReplace, WhatIsNoRegularFileIsEinval) {
  const TemporaryDirectory directory;
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0644), 0);
  ASSERT_EQ(symlink("fifo", (directory / "link").c_str()), 0);
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, (directory / "socket").c_str(),
               sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  for (const char* const name : {"fifo", "link", "socket"}) {
    EXPECT_EQ(replace(directory / name, "x"), -1) << name;
    EXPECT_EQ(errno, EINVAL) << name;
  }
  close(listener);
  EXPECT_EQ(names_in(directory.path()), (Names{"fifo", "link", "socket"}));
}

TEST(FileReplace, DeviceIsEinval) {
  EXPECT_EQ(error_as_user("/dev/null", "x"), EINVAL);
  EXPECT_TRUE(S_ISCHR(status_of("/dev/null").st_mode));
}

// --- Symbolic links.

TEST(FileReplace, LinkStaysAndWhatItLeadsToIsReplacedInItsDirectory) {
  const TemporaryDirectory directory;
  ASSERT_EQ(mkdir((directory / "a").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((directory / "b").c_str(), 0755), 0);
  directory.write("b/f", "old");
  directory.write("b/.f.new", "left by a power cut");
  ASSERT_EQ(symlink("../b/f", (directory / "a/link").c_str()), 0);
  ASSERT_EQ(symlink((directory / "a/link").c_str(), (directory / "first").c_str()), 0);
  EXPECT_EQ(replace(directory / "first", "new"), 0);
  EXPECT_EQ(read_file(directory / "b/f"), "new");
  EXPECT_EQ(names_in(directory / "b"), Names{"f"});
  EXPECT_EQ(names_in(directory / "a"), Names{"link"});
  EXPECT_TRUE(S_ISLNK(status_of(directory / "first").st_mode));
  EXPECT_TRUE(S_ISLNK(status_of(directory / "a/link").st_mode));
}

TEST(FileReplace, LinkMayBeInADirectoryThatIsOnlyPassed) {
  SKIP_UNLESS_ROOT("is not stopped by its own directories");
  const TemporaryDirectory directory;
  ASSERT_EQ(chmod(directory.path().c_str(), 0711), 0);
  ASSERT_EQ(mkdir((directory / "b").c_str(), 0755), 0);
  ASSERT_EQ(chown((directory / "b").c_str(), kUser, kGroup), 0);
  ASSERT_EQ(symlink("b/f", (directory / "link").c_str()), 0);
  ASSERT_EQ(chown(directory.write("b/f", "old").c_str(), kUser, kGroup), 0);
  EXPECT_EQ(error_as_user(directory / "link", "new"), 0);
  EXPECT_EQ(read_file(directory / "b/f"), "new");
}

TEST(FileReplace, LinkThatLeadsNowhereIsEnoent) {
  const TemporaryDirectory directory;
  ASSERT_EQ(symlink("missing", (directory / "a").c_str()), 0);
  ASSERT_EQ(symlink("missing/f", (directory / "b").c_str()), 0);
  ASSERT_EQ(symlink("missing/", (directory / "c").c_str()), 0);
  for (const char* const name : {"a", "b", "c"}) {
    EXPECT_EQ(replace(directory / name, "x"), -1) << name;
    EXPECT_EQ(errno, ENOENT) << name;
  }
  EXPECT_EQ(names_in(directory.path()), (Names{"a", "b", "c"}));
}

TEST(FileReplace, LinksInACircleAreEloop) {
  const TemporaryDirectory directory;
  ASSERT_EQ(symlink("b", (directory / "a").c_str()), 0);
  ASSERT_EQ(symlink("a", (directory / "b").c_str()), 0);
  EXPECT_EQ(replace(directory / "a", "x"), -1);
  EXPECT_EQ(errno, ELOOP);
}

TEST(FileReplace, FollowsAsManyLinksAsTheSystem) {
  const TemporaryDirectory directory;
  directory.write("0", "old");
  for (int i = 1; i <= 41; ++i) {
    ASSERT_EQ(
        symlink(std::to_string(i - 1).c_str(), (directory / std::to_string(i)).c_str()), 0);
  }
  EXPECT_EQ(access((directory / "40").c_str(), F_OK), 0);
  EXPECT_EQ(replace(directory / "40", "new"), 0);
  EXPECT_EQ(read_file(directory / "0"), "new");
  EXPECT_EQ(access((directory / "41").c_str(), F_OK), -1);
  EXPECT_EQ(replace(directory / "41", "newer"), -1);
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(read_file(directory / "0"), "new");
}

TEST(FileReplace, LinkTargetsOfAnyLengthAreFollowed) {
  for (const int length : {254, 255, 256, 257, 511, 512, 513, 4000}) {
    const TemporaryDirectory directory;
    directory.write("f", "old");
    std::string target = length % 2 == 0 ? ".//f" : "./f";
    while (target.size() < static_cast<size_t>(length)) target.insert(0, "./");
    target.resize(target.size());
    ASSERT_EQ(symlink(target.c_str(), (directory / "link").c_str()), 0);
    EXPECT_EQ(replace(directory / "link", "new"), 0) << length;
    EXPECT_EQ(read_file(directory / "f"), "new") << length;
    EXPECT_EQ(names_in(directory.path()), (Names{"f", "link"}));
  }
}

TEST(FileReplace, LinkThatTheSystemDoesNotFollowIsNotFollowed) {
  SKIP_UNLESS_ROOT("has no directory that everybody writes");
  std::string protection;
  if (FILE* const file = fopen("/proc/sys/fs/protected_symlinks", "re")) {
    protection = static_cast<char>(getc(file));
    fclose(file);
  }
  if (protection != "1") GTEST_SKIP() << "fs.protected_symlinks is off";
  const TemporaryDirectory directory;
  ASSERT_EQ(chmod(directory.path().c_str(), 01777), 0);
  directory.write("f", "old");
  ASSERT_EQ(symlink("f", (directory / "link").c_str()), 0);
  ASSERT_EQ(lchown((directory / "link").c_str(), kUser + 1, kGroup), 0);
  EXPECT_EQ(replace(directory / "link", "new"), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(read_file(directory / "f"), "old");
}

TEST(FileReplace, LinkThatIsRefusedIsNotFollowedByHand) {
  // As with fs.protected_symlinks, which not every machine has switched on.
  const TemporaryDirectory directory;
  directory.write("f", "old");
  ASSERT_EQ(symlink("f", (directory / "link").c_str()), 0);
  const Watch watch;
  stat_error = EACCES;
  EXPECT_EQ(replace(directory / "link", "new"), -1);
  EXPECT_EQ(errno, EACCES);
  stat_error = 0;
  EXPECT_EQ(read_file(directory / "f"), "old");
  EXPECT_EQ(names_in(directory.path()), (Names{"f", "link"}));
}

// What happens to the names while the library waits for the lock.
const TemporaryDirectory* scene = nullptr;

TEST(FileReplace, FileThatBecomesALinkMeanwhileStaysALink) {
  const TemporaryDirectory directory;
  scene = &directory;
  const std::string path = directory.write("f", "old");
  directory.write("target", "old target");
  const Watch watch;
  on_flock = [] {
    on_flock = nullptr;
    EXPECT_EQ(unlink((*scene / "f").c_str()), 0);
    EXPECT_EQ(symlink("target", (*scene / "f").c_str()), 0);
  };
  EXPECT_EQ(replace(path, "new"), 0);
  EXPECT_TRUE(S_ISLNK(status_of(path).st_mode));
  EXPECT_EQ(read_file(directory / "target"), "new");
  EXPECT_EQ(names_in(directory.path()), (Names{"f", "target"}));
}

TEST(FileReplace, LinkThatIsTurnedMeanwhileIsFollowedAnew) {
  const TemporaryDirectory directory;
  scene = &directory;
  directory.write("a", "a");
  directory.write("b", "b");
  ASSERT_EQ(symlink("a", (directory / "link").c_str()), 0);
  const Watch watch;
  on_flock = [] {
    on_flock = nullptr;
    EXPECT_EQ(unlink((*scene / "link").c_str()), 0);
    EXPECT_EQ(symlink("b", (*scene / "link").c_str()), 0);
  };
  EXPECT_EQ(replace(directory / "link", "new"), 0);
  EXPECT_EQ(read_file(directory / "a"), "a");
  EXPECT_EQ(read_file(directory / "b"), "new");
}

TEST(FileReplace, LinkThatNeverRestsIsGivenUpWithEagain) {
  static int turns;
  const TemporaryDirectory directory;
  scene = &directory;
  directory.write("a", "a");
  directory.write("b", "b");
  ASSERT_EQ(symlink("a", (directory / "link").c_str()), 0);
  const Watch watch;
  turns = 0;
  on_flock = [] {
    EXPECT_EQ(unlink((*scene / "link").c_str()), 0);
    EXPECT_EQ(symlink(++turns % 2 == 0 ? "a" : "b", (*scene / "link").c_str()), 0);
  };
  const int descriptors = lowest_free_descriptor();
  EXPECT_EQ(replace(directory / "link", "new"), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_GT(turns, 1);
  EXPECT_EQ(read_file(directory / "a"), "a");
  EXPECT_EQ(read_file(directory / "b"), "b");
  EXPECT_EQ(lowest_free_descriptor(), descriptors);
}

TEST(FileReplace, LinkOfTheKernelToARemovedFileIsEnoent) {
  const TemporaryDirectory directory;
  const int file = open(directory.write("f", "old").c_str(), O_RDONLY);
  ASSERT_EQ(unlink((directory / "f").c_str()), 0);
  EXPECT_EQ(replace("/proc/self/fd/" + std::to_string(file), "new"), -1);
  EXPECT_EQ(errno, ENOENT);
  close(file);
  EXPECT_EQ(names_in(directory.path()), Names{});
}

// --- Names and paths.

TEST(FileReplace, PathsMayBeginAtTheRoot) {
  SKIP_UNLESS_ROOT("cannot have a root of its own");
  constexpr int kNoRoot = 77;
  const TemporaryDirectory directory;
  ASSERT_EQ(mkdir((directory / "d").c_str(), 0755), 0);
  const int status = status_in_child([&] {
    if (chroot(directory.path().c_str()) != 0 || chdir("/d") != 0) return 2;
    const int root = open("/", O_RDONLY | O_DIRECTORY);
    if (root == -1) return kNoRoot;
    close(root);
    if (symlink("/f", "/link") != 0 || replace("/f", "old") != 0) return 3;
    return replace("/link", "new");
  });
  if (status == kNoRoot) GTEST_SKIP() << "the emulator has a root of its own";
  EXPECT_EQ(status, 0);
  EXPECT_EQ(read_file(directory / "f"), "new");
  EXPECT_EQ(names_in(directory.path()), (Names{"d", "f", "link"}));
}

TEST(FileReplace, PathsWithoutADirectoryAreInTheWorkingDirectory) {
  const TemporaryDirectory directory;
  EXPECT_EQ(status_in_child([&] {
              return chdir(directory.path().c_str()) == 0 ? replace("f", "new") : 2;
            }),
            0);
  EXPECT_EQ(read_file(directory / "f"), "new");
}

TEST(FileReplace, PathMayBeAsLongAsTheSystemTakes) {
  const TemporaryDirectory directory;
  std::string path = directory.path();
  while (path.size() + 202 < PATH_MAX) {
    path += "/" + std::string(199, 'd');
    ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
  }
  path += "/" + std::string(PATH_MAX - path.size() - 2, 'n');
  ASSERT_EQ(path.size(), size_t{PATH_MAX - 1});
  EXPECT_EQ(replace(path, "old"), 0);
  EXPECT_EQ(replace(path, "new"), 0);
  EXPECT_EQ(read_file(path), "new");
}

TEST(FileReplace, TemporaryNameOfALongNameIsCutBetweenCharacters) {
  const struct {
    std::string name;
    std::string stem;
  } cases[] = {
      {"f", "f"},
      {std::string(250, 'n'), std::string(250, 'n')},
      {std::string(251, 'n'), std::string(250, 'n')},
      {std::string(255, 'n'), std::string(250, 'n')},
      {std::string(249, 'n') + "\xc3\xa4xyz", std::string(249, 'n')},
      {std::string(248, 'n') + "\xc3\xa4xyz", std::string(248, 'n') + "\xc3\xa4"},
      {std::string(247, 'n') + "\xf0\x9f\x92\xa7z", std::string(247, 'n')},
  };
  for (const auto& [name, stem] : cases) {
    const TemporaryDirectory directory;
    directory.write(name, "old");
    directory.write("." + stem + ".new", "left by a power cut");
    EXPECT_EQ(replace(directory / name, "new"), 0) << name;
    EXPECT_EQ(names_in(directory.path()), Names{name});
    EXPECT_EQ(read_file(directory / name), "new");
  }
}

TEST(FileReplace, TemporaryNameIsNoLongerThanTheFilesystemTakes) {
  const TemporaryDirectory directory;
  const std::string name(24, 'n');
  const std::string path = directory.write(name, "old");
  // It is gone afterwards, so this was the name.
  directory.write("." + std::string(19, 'n') + ".new", "left by a power cut");
  {
    const Watch watch;
    longest_name = told_longest = 24;
    EXPECT_EQ(replace(path, "new"), 0);
  }
  EXPECT_EQ(names_in(directory.path()), Names{name});
  EXPECT_EQ(read_file(path), "new");
}

TEST(FileReplace, FilesystemThatRefusesTheNameAndHasNoUsableLimitLeavesTheFile) {
  const TemporaryDirectory directory;
  const std::string path = directory.write(std::string(24, 'n'), "old");
  for (const size_t told : {size_t{7}, size_t{NAME_MAX}}) {
    const Watch watch;
    longest_name = 24;
    told_longest = told;
    EXPECT_EQ(replace(path, "new"), -1);
    EXPECT_EQ(errno, ENAMETOOLONG) << told;
  }
  {
    const Watch watch;
    longest_name = 24;
    told_longest = 0;
    EXPECT_EQ(replace(path, "new"), -1);
    EXPECT_EQ(errno, EIO);
  }
  EXPECT_EQ(names_in(directory.path()), Names{std::string(24, 'n')});
  EXPECT_EQ(read_file(path), "old");
}

TEST(FileReplace, NameOfDotsIsNotItsOwnTemporaryName) {
  const TemporaryDirectory directory;
  const std::string name = std::string(252, '.') + "new";
  directory.write(name, "old");
  const Watch watch;
  write_error = ENOSPC;
  EXPECT_EQ(replace(directory / name, "new"), -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(names_in(directory.path()), Names{name});
  EXPECT_EQ(read_file(directory / name), "old");
}

// --- The temporary file.

std::string scene_file;

TEST(FileReplace, RemovesWhatAPowerCutLeft) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  scene_file = path;
  const std::string canary = directory.write("canary", "untouched");
  const std::string temporary = directory / ".f.new";
  void (*const leave[])(const char*) = {
      [](const char* name) { EXPECT_EQ(close(open(name, O_CREAT | O_WRONLY, 0)), 0); },
      [](const char* name) { EXPECT_EQ(symlink("canary", name), 0); },
      [](const char* name) { EXPECT_EQ(symlink("missing", name), 0); },
      [](const char* name) { EXPECT_EQ(mkfifo(name, 0644), 0); },
      // A rename of which half was on the disk.
      [](const char* name) { EXPECT_EQ(link(scene_file.c_str(), name), 0); },
  };
  for (const auto make : leave) {
    make(temporary.c_str());
    EXPECT_EQ(replace(path, "new"), 0);
    EXPECT_EQ(names_in(directory.path()), (Names{"canary", "f"}));
    EXPECT_EQ(read_file(canary), "untouched");
    EXPECT_EQ(read_file(path), "new");
    EXPECT_TRUE(S_ISREG(status_of(path).st_mode));
  }
}

TEST(FileReplace, DirectoryOfTheTemporaryNameIsLeftAloneAndFails) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  ASSERT_EQ(mkdir((directory / ".f.new").c_str(), 0755), 0);
  EXPECT_EQ(replace(path, "new"), -1);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(read_file(path), "old");
  EXPECT_EQ(names_in(directory.path()), (Names{".f.new", "f"}));
}

TEST(FileReplace, FailuresLeaveTheFileAndNoTemporaryOne) {
  void (*const fail[])() = {
      [] { write_error = EDQUOT; },
      [] { failing_fsync = 1, fsync_error = EIO; },
      [] { renames_refused = 1; },
  };
  const int errors[] = {EDQUOT, EIO, ENOSPC};
  for (size_t i = 0; i < std::size(fail); ++i) {
    const TemporaryDirectory directory;
    const std::string path = directory.write("f", "old");
    const int descriptors = lowest_free_descriptor();
    const Watch watch;
    fail[i]();
    EXPECT_EQ(replace(path, "new"), -1);
    EXPECT_EQ(errno, errors[i]);
    EXPECT_EQ(read_file(path), "old");
    EXPECT_EQ(names_in(directory.path()), Names{"f"});
    EXPECT_EQ(lowest_free_descriptor(), descriptors);
  }
}

TEST(FileReplace, FailedSyncIsNotTriedAgainNotEvenAfterASignal) {
  for (const int error : {EIO, EINTR}) {
    const TemporaryDirectory directory;
    const std::string path = directory.write("f", "old");
    const Watch watch;
    failing_fsync = 1;
    fsync_error = error;
    EXPECT_EQ(replace(path, "new"), -1);
    EXPECT_EQ(errno, error);
    EXPECT_EQ(fsync_calls, 1);
    EXPECT_EQ(read_file(path), "old");
  }
}

TEST(FileReplace, DirectoryThatCannotBeSyncedGives1WithTheNewContentInPlace) {
  for (const int error : {EIO, EINTR, EINVAL}) {
    const TemporaryDirectory directory;
    const std::string path = directory.write("f", "old");
    const Watch watch;
    failing_fsync = 2;
    fsync_error = error;
    EXPECT_EQ(replace(path, "new"), 1);
    EXPECT_EQ(errno, error);
    EXPECT_EQ(fsync_calls, 2);
    EXPECT_EQ(read_file(path), "new");
    EXPECT_EQ(names_in(directory.path()), Names{"f"});
  }
}

TEST(FileReplace, InterruptedCloseHasClosed) {
  const TemporaryDirectory directory;
  const Watch watch;
  close_error = EINTR;
  EXPECT_EQ(replace(directory / "f", "new"), 0);
  EXPECT_EQ(read_file(directory / "f"), "new");
}

TEST(FileReplace, FailedCloseLeavesTheFile) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  const Watch watch;
  close_error = EIO;
  EXPECT_EQ(replace(path, "new"), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(read_file(path), "old");
  EXPECT_EQ(names_in(directory.path()), Names{"f"});
}

TEST(FileReplace, InterruptedWriteGoesOn) {
  const TemporaryDirectory directory;
  const Watch watch;
  interrupted_writes = 3;
  EXPECT_EQ(replace(directory / "f", "all of the content"), 0);
  EXPECT_EQ(read_file(directory / "f"), "all of the content");
}

TEST(FileReplace, ExhaustedMemoryIsEnomemAndLeavesTheFile) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  ASSERT_EQ(symlink("f", (directory / "link").c_str()), 0);
  const std::string link = directory / "link";
  for_each_failed_allocation([&](AllocationFaults& faults) {
    errno = 0;
    const int result = g_file_replace(link.c_str(), "new", 3);
    const int error = errno;
    faults.disarm();
    EXPECT_EQ(result, faults.failures() == 0 ? 0 : -1);
    if (result == -1) {
      EXPECT_EQ(error, ENOMEM);
      EXPECT_EQ(read_file(path), "old");
    } else {
      EXPECT_EQ(replace(path, "old"), 0);
    }
    EXPECT_EQ(names_in(directory.path()), (Names{"f", "link"}));
  });
}

// --- The lock.

TEST(FileReplace, WaitsForTheLockOnTheDirectory) {
  const TemporaryDirectory directory;
  const int lock = open(directory.path().c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(access((directory / "f").c_str(), F_OK), -1);
    flock(lock, LOCK_UN);
  });
  EXPECT_EQ(replace(directory / "f", "new"), 0);
  other.join();
  EXPECT_EQ(read_file(directory / "f"), "new");
  close(lock);
}

TEST(FileReplace, GivesUpWithEagainAfterFiveSeconds) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  const int lock = open(directory.path().c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(flock(lock, LOCK_SH), 0);
  const int64_t start = g_monotonic_ms();
  EXPECT_EQ(replace(path, "new"), -1);
  EXPECT_EQ(errno, EAGAIN);
  const int64_t waited = g_monotonic_ms() - start;
  EXPECT_GE(waited, 5000);
  EXPECT_LT(waited, 30'000);
  EXPECT_EQ(read_file(path), "old");
  EXPECT_EQ(names_in(directory.path()), Names{"f"});
  close(lock);
}

TEST(FileReplace, ChildForkedMeanwhileDoesNotKeepTheLock) {
  static pid_t child;
  const TemporaryDirectory directory;
  const Watch watch;
  on_write = [](int) {
    if (child == 0 && (child = fork()) == 0) {
      pause();
      _exit(0);
    }
  };
  child = 0;
  EXPECT_EQ(replace(directory / "f", "new"), 0);
  const int lock = open(directory.path().c_str(), O_RDONLY | O_DIRECTORY);
  EXPECT_EQ(flock(lock, LOCK_EX | LOCK_NB), 0);
  close(lock);
  kill(child, SIGKILL);
  EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

// --- Descriptors and threads.

TEST(FileReplace, DescriptorsAreNeverTheStandardOnes) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  EXPECT_EQ(status_in_child([&] {
              close(0);
              close(1);
              close(2);
              const Watch watch;
              on_write = [](int) {
                for (int number = 0; number < 3; ++number) {
                  if (fcntl(number, F_GETFD) != -1) _exit(50 + number);
                }
              };
              return replace(path, "new");
            }),
            0);
  EXPECT_EQ(read_file(path), "new");
}

TEST(FileReplace, NoDescriptorButAStandardOneLeavesTheFileAndNoTemporaryOne) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", "old");
  EXPECT_EQ(status_in_child([&] {
              for (int number = 3; number < 100; ++number) close(number);
              close(0);
              const rlimit limit = {4, 4};  // one for the directory
              if (setrlimit(RLIMIT_NOFILE, &limit) != 0) return 2;
              return replace(path, "new") == -1 ? errno : 0;
            }),
            EMFILE);
  EXPECT_EQ(read_file(path), "old");
  EXPECT_EQ(names_in(directory.path()), Names{"f"});
}

TEST(FileReplace, DescriptorsAreNotInherited) {
  constexpr int kMost = 100;
  static bool was_open[kMost];
  static int opened;
  const TemporaryDirectory directory;
  const Watch watch;
  on_write = [](int) {
    for (int number = 0; number < kMost; ++number) {
      const int flags = fcntl(number, F_GETFD);
      if (flags == -1 || was_open[number]) continue;
      ++opened;
      EXPECT_EQ(flags & FD_CLOEXEC, FD_CLOEXEC);
    }
  };
  opened = 0;
  for (int number = 0; number < kMost; ++number) {
    was_open[number] = fcntl(number, F_GETFD) != -1;
  }
  EXPECT_EQ(replace(directory / "f", "x"), 0);
  EXPECT_EQ(opened, 2);
}

TEST(FileReplace, LeavesNoDescriptorOpen) {
  const TemporaryDirectory directory;
  directory.write("f", "old");
  ASSERT_EQ(symlink("f", (directory / "link").c_str()), 0);
  const int descriptors = lowest_free_descriptor();
  for (const char* const name : {"f", "link", "new", "missing/f", ""}) {
    replace(directory / name, "x");
    EXPECT_EQ(lowest_free_descriptor(), descriptors) << name;
  }
}

struct CancelledCall {
  std::string path;
  int result = -2;
  int state = -1;
  bool is_past = false;
};

// The cancelled thread leaves the function, and the sanitizer does not see it go.
[[gnu::no_sanitize_address]] void* replace_when_cancelled(void* argument) {
  auto& call = *static_cast<CancelledCall*>(argument);
  pthread_cancel(pthread_self());
  call.result = replace(call.path, "new");
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &call.state);
  pthread_testcancel();
  call.is_past = true;
  return nullptr;
}

TEST(FileReplace, CancellationWaitsUntilItReturns) {
  const TemporaryDirectory directory;
  CancelledCall call{directory.write("f", "old")};
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, nullptr, replace_when_cancelled, &call), 0);
  void* returned = nullptr;
  ASSERT_EQ(pthread_join(thread, &returned), 0);
  EXPECT_EQ(returned, PTHREAD_CANCELED);
  EXPECT_EQ(call.result, 0);
  EXPECT_EQ(call.state, PTHREAD_CANCEL_ENABLE);
  EXPECT_FALSE(call.is_past);
  EXPECT_EQ(read_file(call.path), "new");
  EXPECT_EQ(names_in(directory.path()), Names{"f"});
}

TEST(FileReplace, LeavesDisabledCancellationDisabled) {
  const TemporaryDirectory directory;
  int state = -1;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  EXPECT_EQ(replace(directory / "f", "new"), 0);
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
  EXPECT_EQ(state, PTHREAD_CANCEL_DISABLE);
}
