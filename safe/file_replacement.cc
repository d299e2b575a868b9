// A power cut may come at any moment and preserve any part of what was not synced. So the
// new content, its owner and mode are on the disk before the rename, and the rename is on
// the disk before success is returned.
//
// SPDX-License-Identifier: MIT

#include "safe/file_replacement.h"

#include <groundwork/safe.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace groundwork;

namespace {

constexpr uint32_t kLockTimeoutMs = 5000;
constexpr uint32_t kLongestNapMs = 16;  // between two attempts to lock
constexpr int kMaxLinks = 40;           // as many as the system follows
constexpr int kAttempts = 10;           // while others change links and files
constexpr size_t kShortestLimit = 8;    // on the length of a filesystem's names
constexpr size_t kLongestWrite = size_t{1} << 30;
constexpr mode_t kNewFile = 0644;
constexpr mode_t kOwnerBits = 0700;
constexpr mode_t kModeBits = 07777;

bool is_same_file(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Splits a path into its directory and the last component, in place.
struct SplitPath {
  const char* directory;
  const char* name;
};
SplitPath split(char* path) {
  char* const slash = std::strrchr(path, '/');
  if (slash == nullptr) return {".", path};
  if (slash == path) return {"/", path + 1};
  *slash = '\0';
  return {path, slash + 1};
}

// True for the names of directories: "" (as in "dir/"), "." and "..".
bool names_directory(const char* name) {
  if (name[0] == '.') ++name;
  if (name[0] == '.') ++name;
  return name[0] == '\0';
}

void nap(uint32_t ms) {
  const timespec time = {0, static_cast<long>(ms * 1'000'000)};
  nanosleep(&time, nullptr);
}

// Never retried, not even after a signal: what could not be written may have been dropped
// by then, but the next fsync() would succeed.
bool sync_once(int descriptor) {
  return fsync(descriptor) == 0;
}

}  // namespace

Replacement::Replacement() = default;

Replacement::~Replacement() {
  const int saved_errno = errno;
  temporary_.reset();
  if (is_created_) remove_temporary();
  leave_directory();
  errno = saved_errno;
}

bool Replacement::find(const char* path) {
  for (int attempts = 0; attempts < kAttempts; ++attempts) {
    if (!resolve(path) || !lock_directory()) return false;
    switch (look(path)) {
      case Look::kFound:
        name_temporary(NAME_MAX);
        return true;
      case Look::kFailed:
        return false;
      case Look::kMoved:
        leave_directory();
    }
  }
  errno = exists_ ? EAGAIN : ENOENT;
  return false;
}

// Opens the directory of the file that the path leads to. Follows links itself, since the
// file has to be named relative to its own directory.
bool Replacement::resolve(const char* path) {
  const size_t size = std::strlen(path) + 1;
  if (size > PATH_MAX) {
    errno = ENAMETOOLONG;
    return false;
  }
  if (paths_ == nullptr) paths_.reset(static_cast<char*>(std::malloc(2 * PATH_MAX)));
  if (paths_ == nullptr) return false;
  char* here = paths_.get();
  char* target = here + PATH_MAX;
  std::memcpy(here, path, size);
  Descriptor passed;
  for (links_ = 0;; ++links_) {
    const int start = passed.is_open() ? passed.get() : AT_FDCWD;
    const ssize_t length =
        uninterrupted([=] { return readlinkat(start, here, target, PATH_MAX); });
    const bool is_end = length == -1;  // not a link: the file, or nothing yet
    if (is_end && errno != EINVAL && errno != ENOENT) return false;
    if (!is_end && (links_ == kMaxLinks || length == PATH_MAX)) {
      errno = links_ == kMaxLinks ? ELOOP : ENAMETOOLONG;
      return false;
    }
    const SplitPath parts = split(here);
    if (is_end && names_directory(parts.name)) {
      if (errno == EINVAL) errno = EISDIR;
      return false;
    }
    // A directory on the way need not be readable.
    const int access = is_end ? O_RDONLY : O_PATH;
    directory_ = open_at(start, parts.directory, access | O_DIRECTORY);
    if (!directory_.is_open()) return false;
    if (is_end) {
      name_ = parts.name;
      return true;
    }
    target[length] = '\0';
    std::swap(here, target);
    passed = std::move(directory_);
  }
}

bool Replacement::lock_directory() {
  for (uint32_t pause = 1;; pause = std::min(2 * pause, kLongestNapMs)) {
    const int result =
        uninterrupted([this] { return flock(directory_.get(), LOCK_EX | LOCK_NB); });
    is_locked_ = result == 0;
    if (is_locked_ || errno != EWOULDBLOCK) return is_locked_;
    const auto now = static_cast<uint32_t>(g_monotonic_ms());
    if (!has_waited_) waiting_since_ = now;
    has_waited_ = true;
    const uint32_t waited = now - waiting_since_;
    if (waited >= kLockTimeoutMs) {
      errno = EAGAIN;
      return false;
    }
    nap(std::min(pause, kLockTimeoutMs - waited));
  }
}

// Examines the file, now that nobody else replaces it.
Replacement::Look Replacement::look(const char* path) {
  struct stat seen;
  // Checks with stat() as well, since the system does not follow every link for every user.
  if (links_ > 0 && uninterrupted([&] { return stat(path, &seen); }) != 0) {
    return Look::kFailed;
  }
  exists_ = examine(name_, &file_);
  if (!exists_ && errno != ENOENT) return Look::kFailed;
  if (links_ == 0) {
    if (!exists_) {
      mode_ = kNewFile;
      return Look::kFound;
    }
    if (S_ISLNK(file_.st_mode)) return Look::kMoved;
    seen = file_;
  }
  if (!S_ISREG(seen.st_mode)) {
    errno = S_ISDIR(seen.st_mode) ? EISDIR : EINVAL;
    return Look::kFailed;
  }
  if (!exists_ || !is_same_file(seen, file_)) return Look::kMoved;
  set_mode(file_.st_mode);
  return Look::kFound;
}

// Unlocks explicitly: children that were forked meanwhile hold the descriptor until they
// call exec().
void Replacement::leave_directory() {
  if (is_locked_) uninterrupted([this] { return flock(directory_.get(), LOCK_UN); });
  is_locked_ = false;
  directory_.reset();
}

void Replacement::set_mode(mode_t mode) {
  mode_ = mode & kModeBits;
  mode_is_exact_ = true;
}

// Uses as much of a long name as fits, without splitting a UTF-8 character.
void Replacement::name_temporary(size_t longest) {
  constexpr char kSuffix[] = ".new";
  const size_t whole = std::strlen(name_);
  size_t length = std::min(whole, longest - sizeof kSuffix);
  if (length < whole) {
    while (length > 1 && (name_[length] & 0xC0) == 0x80) --length;
  }
  temporary_name_[0] = '.';
  std::memcpy(temporary_name_ + 1, name_, length);
  std::memcpy(temporary_name_ + 1 + length, kSuffix, sizeof kSuffix);
  // A cut name of dots would be equal to that of its temporary file.
  if (std::strcmp(temporary_name_, name_) == 0) temporary_name_[1] = '_';
}

// Returns whether there is a file of that name in the directory, and what it is like.
bool Replacement::examine(const char* name, struct stat* status) const {
  return uninterrupted([=, this] {
           return fstatat(directory_.get(), name, status, AT_SYMLINK_NOFOLLOW);
         }) == 0;
}

bool Replacement::remove_temporary() {
  return uninterrupted([this] { return unlinkat(directory_.get(), temporary_name_, 0); }) ==
         0;
}

bool Replacement::spares(const struct stat& other) const {
  struct stat left;
  const bool is_left = examine(temporary_name_, &left);
  if (!is_left && errno != ENOENT) return false;
  if (!(is_left && is_same_file(left, other)) &&
      (!exists_ || !is_same_file(file_, other))) {
    return true;
  }
  errno = EINVAL;
  return false;
}

bool Replacement::create() {
  // Only for its owner, until the owner is the right one.
  const mode_t mode = mode_is_exact_ ? mode_ & kOwnerBits : mode_;
  for (int attempts = 0; attempts < kAttempts; ++attempts) {
    temporary_ = open_at(directory_.get(), temporary_name_,
                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode, &is_created_);
    if (is_created_) return temporary_.is_open();
    if (errno == ENAMETOOLONG) {
      // Not fpathconf(), which does not ask the filesystem in every C library.
      struct statvfs filesystem;
      if (uninterrupted([&] { return fstatvfs(directory_.get(), &filesystem); }) != 0) {
        return false;
      }
      const size_t longest = filesystem.f_namemax;
      if (longest < kShortestLimit || longest >= NAME_MAX) return false;
      name_temporary(longest);
    } else if (errno != EEXIST || (!remove_temporary() && errno != ENOENT)) {
      return false;
    }
  }
  errno = EEXIST;
  return false;
}

bool Replacement::write(const void* data, size_t size) {
  const char* next = static_cast<const char*>(data);
  while (size > 0) {
    const size_t wanted = std::min(size, kLongestWrite);
    const ssize_t count =
        uninterrupted([=, this] { return ::write(temporary_.get(), next, wanted); });
    if (count == -1) return false;
    next += count;
    size -= static_cast<size_t>(count);
  }
  return true;
}

bool Replacement::is_as_wanted(const struct stat& status) const {
  return (status.st_mode & kModeBits) == mode_ &&
         (!exists_ || (status.st_uid == file_.st_uid && status.st_gid == file_.st_gid));
}

// Called after writing, which clears the set-ID bits.
bool Replacement::set_owner_and_mode() {
  if (!mode_is_exact_) return true;
  struct stat now;
  if (get_status(temporary_.get(), &now) != 0) return false;
  if (is_as_wanted(now)) return true;
  if (exists_ && (now.st_uid != file_.st_uid || now.st_gid != file_.st_gid) &&
      uninterrupted(
          [this] { return fchown(temporary_.get(), file_.st_uid, file_.st_gid); }) != 0) {
    if (errno == EINVAL) errno = EPERM;  // an owner unknown in this user namespace
    return false;
  }
  if (uninterrupted([this] { return fchmod(temporary_.get(), mode_); }) != 0) return false;
  // Not every user can set every bit, and some filesystems do not have all.
  if (get_status(temporary_.get(), &now) != 0) return false;
  if (is_as_wanted(now)) return true;
  errno = EPERM;
  return false;
}

// An interrupted close() has closed the file, and its content is already on the disk.
bool Replacement::close_temporary() {
  return close(temporary_.release()) == 0 || errno == EINTR;
}

int Replacement::commit(const timespec* times) {
  const int directory = directory_.get();
  if (!set_owner_and_mode()) return -1;
  if (times != nullptr &&
      uninterrupted([=, this] { return futimens(temporary_.get(), times); }) != 0) {
    return -1;
  }
  if (!sync_once(temporary_.get()) || !close_temporary()) return -1;
  if (uninterrupted([=, this] {
        return renameat(directory, temporary_name_, directory, name_);
      }) != 0) {
    return -1;
  }
  is_created_ = false;
  return sync_once(directory) ? 0 : 1;
}
