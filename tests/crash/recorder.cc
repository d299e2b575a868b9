// SPDX-License-Identifier: MIT

#include "crash/recorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/temporary_directory.h"

namespace {

using crash::kNoFile;
using crash::Step;

// --- The state of a recording. One thread at a time.

bool is_recording = false;
struct stat watched_directory;
std::string directory_path;
std::map<std::string, int> names;
int file_count = 0;
std::vector<int> file_of_descriptor;  // kNoFile for others
std::vector<size_t> position;         // of each descriptor
std::vector<bool> appends;
crash::Recording recording;

size_t write_limit = 0;
int calls_left = 0;
int call_count = 0;

// A call of the system by a program under test.
void count_call() {
  ++call_count;
  if (calls_left > 0 && --calls_left == 0) syscall(SYS_kill, getpid(), SIGKILL);
}

template <typename Function>
Function* next_function(const char* name) {
  const int kept = errno;
  void* const found = dlsym(RTLD_NEXT, name);
  Function* function = nullptr;
  std::memcpy(&function, &found, sizeof function);
  errno = kept;
  return function;
}

// The C library's own function. On 32-bit targets those with offsets and times of 64 bits
// have names of their own, which the headers give to this source, as to the library.
#if __SIZEOF_LONG__ == 8
#define NEXT64(function, glibc, musl) next_function<decltype(function)>(#function)
#elif defined(__GLIBC__)
#define NEXT64(function, glibc, musl) next_function<decltype(function)>(glibc)
#else
#define NEXT64(function, glibc, musl) next_function<decltype(function)>(musl)
#endif
#define NEXT(function) next_function<decltype(function)>(#function)

// The name within the watched directory that a path means; empty for any other.
std::string watched_name(int at, const char* path) {
  if (!is_recording) return {};
  const char* const slash = std::strrchr(path, '/');
  const std::string parent = slash == nullptr ? "." : std::string(path, slash + 1);
  struct stat status;
  if (NEXT64(fstatat, "__fstatat64_time64", "__fstatat_time64")(at, parent.c_str(), &status,
                                                                0) != 0 ||
      status.st_dev != watched_directory.st_dev ||
      status.st_ino != watched_directory.st_ino) {
    return {};
  }
  return slash == nullptr ? path : slash + 1;
}

int file_of(int descriptor) {
  const auto index = static_cast<size_t>(descriptor);
  return is_recording && index < file_of_descriptor.size() ? file_of_descriptor[index]
                                                           : kNoFile;
}

void add(Step step) {
  recording.steps.push_back(std::move(step));
}

void set_file_of(int descriptor, int file, int flags) {
  const auto index = static_cast<size_t>(descriptor);
  if (index >= file_of_descriptor.size()) {
    file_of_descriptor.resize(index + 1, kNoFile);
    position.resize(index + 1);
    appends.resize(index + 1);
  }
  file_of_descriptor[index] = file;
  position[index] = 0;
  appends[index] = (flags & O_APPEND) != 0;
}

// A file's name as the last link of a chain says. Links do not lead out of the directory.
std::string resolved(const std::string& name) {
  char target[256];
  const ssize_t length =
      readlink((directory_path + "/" + name).c_str(), target, sizeof target - 1);
  return length < 0 ? name : resolved(std::string(target, static_cast<size_t>(length)));
}

int opened(int descriptor, int at, const char* path, int flags) {
  if (descriptor == -1) return descriptor;
  std::string name = watched_name(at, path);
  if (name.empty() || name == "." || name == "..") return descriptor;
  name = resolved(name);
  const auto found = names.find(name);
  int file = found != names.end() ? found->second : kNoFile;
  if (file == kNoFile) {
    file = file_count++;
    names[name] = file;
    add({.kind = Step::kName, .file = file, .name = name});
  } else if ((flags & O_TRUNC) != 0) {
    add({.kind = Step::kResize, .file = file});
  }
  set_file_of(descriptor, file, flags);
  return descriptor;
}

void written(int descriptor, const void* data, ssize_t count, size_t offset) {
  const int file = file_of(descriptor);
  if (count <= 0 || file == kNoFile) return;
  add({.kind = Step::kWrite,
       .file = file,
       .offset = offset,
       .data = std::string(static_cast<const char*>(data), static_cast<size_t>(count))});
}

void synced(int descriptor, Step::Kind kind) {
  if (!is_recording) return;
  struct stat status;
  if (NEXT64(fstat, "__fstat64_time64", "__fstat_time64")(descriptor, &status) == 0 &&
      S_ISDIR(status.st_mode)) {
    if (status.st_dev == watched_directory.st_dev &&
        status.st_ino == watched_directory.st_ino) {
      add({.kind = Step::kSyncDirectory});
    }
  } else if (file_of(descriptor) != kNoFile) {
    add({.kind = kind, .file = file_of(descriptor)});
  }
}

void attributes_set(int descriptor, const std::string& what) {
  if (file_of(descriptor) == kNoFile) return;
  add({.kind = Step::kAttributes, .file = file_of(descriptor), .data = what + ";"});
}

void renamed(int from_at, const char* from, int to_at, const char* to) {
  const std::string old_name = watched_name(from_at, from);
  const std::string new_name = watched_name(to_at, to);
  EXPECT_EQ(old_name.empty(), new_name.empty()) << "a rename across directories";
  if (old_name.empty() || new_name.empty()) return;
  add({.kind = Step::kName, .file = names[old_name], .name = new_name, .other = old_name});
  names[new_name] = names[old_name];
  names.erase(old_name);
}

void unlinked(int at, const char* path) {
  const std::string name = watched_name(at, path);
  if (name.empty()) return;
  add({.kind = Step::kName, .file = kNoFile, .name = name});
  names.erase(name);
}

void linked(int from_at, const char* from, int to_at, const char* to) {
  const std::string old_name = watched_name(from_at, from);
  const std::string new_name = watched_name(to_at, to);
  if (new_name.empty()) return;
  names[new_name] = names[old_name];
  add({.kind = Step::kName, .file = names[new_name], .name = new_name});
}

mode_t mode_argument(int flags, va_list args) {
  return (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
}

#define MODE_OF(flags, mode)                      \
  va_list args;                                   \
  va_start(args, flags);                          \
  const mode_t mode = mode_argument(flags, args); \
  va_end(args)

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  MODE_OF(flags, mode);
  count_call();
  return opened(NEXT64(open, "open64", "open")(path, flags, mode), AT_FDCWD, path, flags);
}

int openat(int directory, const char* path, int flags, ...) {
  MODE_OF(flags, mode);
  count_call();
  return opened(NEXT64(openat, "openat64", "openat")(directory, path, flags, mode),
                directory, path, flags);
}

int close(int descriptor) {
  count_call();
  if (file_of(descriptor) != kNoFile) {
    file_of_descriptor[static_cast<size_t>(descriptor)] = kNoFile;
  }
  return NEXT(close)(descriptor);
}

ssize_t write(int descriptor, const void* data, size_t size) {
  count_call();
  if (write_limit != 0 && file_of(descriptor) != kNoFile)
    size = std::min(size, write_limit);
  const ssize_t count = NEXT(write)(descriptor, data, size);
  if (file_of(descriptor) != kNoFile && count > 0) {
    size_t& at = position[static_cast<size_t>(descriptor)];
    EXPECT_FALSE(appends[static_cast<size_t>(descriptor)]);
    written(descriptor, data, count, at);
    at += static_cast<size_t>(count);
  }
  return count;
}

ssize_t pwrite(int descriptor, const void* data, size_t size, off_t offset) {
  count_call();
  const ssize_t count =
      NEXT64(pwrite, "pwrite64", "pwrite")(descriptor, data, size, offset);
  written(descriptor, data, count, static_cast<size_t>(offset));
  return count;
}

off_t lseek(int descriptor, off_t offset, int whence) noexcept {
  count_call();
  const off_t result = NEXT64(lseek, "lseek64", "lseek")(descriptor, offset, whence);
  if (file_of(descriptor) != kNoFile && result >= 0) {
    position[static_cast<size_t>(descriptor)] = static_cast<size_t>(result);
  }
  return result;
}

ssize_t read(int descriptor, void* data, size_t size) {
  count_call();
  const ssize_t count = NEXT(read)(descriptor, data, size);
  if (file_of(descriptor) != kNoFile && count > 0) {
    position[static_cast<size_t>(descriptor)] += static_cast<size_t>(count);
  }
  return count;
}

int ftruncate(int descriptor, off_t size) noexcept {
  count_call();
  const int result = NEXT64(ftruncate, "ftruncate64", "ftruncate")(descriptor, size);
  if (result == 0 && file_of(descriptor) != kNoFile) {
    add({.kind = Step::kResize,
         .file = file_of(descriptor),
         .size = static_cast<size_t>(size)});
  }
  return result;
}

int fchmod(int descriptor, mode_t mode) noexcept {
  count_call();
  const int result = NEXT(fchmod)(descriptor, mode);
  if (result == 0) attributes_set(descriptor, "mode " + std::to_string(mode));
  return result;
}

int fchown(int descriptor, uid_t user, gid_t group) noexcept {
  count_call();
  const int result = NEXT(fchown)(descriptor, user, group);
  if (result == 0) {
    attributes_set(descriptor,
                   "owner " + std::to_string(user) + ":" + std::to_string(group));
  }
  return result;
}

int futimens(int descriptor, const struct timespec* times) noexcept {
  count_call();
  const int result =
      NEXT64(futimens, "__futimens64", "__futimens_time64")(descriptor, times);
  if (result == 0) {
    attributes_set(descriptor, "times " + std::to_string(times[0].tv_sec) + " " +
                                   std::to_string(times[1].tv_sec));
  }
  return result;
}

int fsync(int descriptor) {
  count_call();
  const int result = NEXT(fsync)(descriptor);
  if (result == 0) synced(descriptor, Step::kSync);
  return result;
}

int fdatasync(int descriptor) {
  count_call();
  const int result = NEXT(fdatasync)(descriptor);
  if (result == 0) synced(descriptor, Step::kSyncData);
  return result;
}

int rename(const char* from, const char* to) noexcept {
  count_call();
  const int result = NEXT(rename)(from, to);
  if (result == 0) renamed(AT_FDCWD, from, AT_FDCWD, to);
  return result;
}

int renameat(int from_at, const char* from, int to_at, const char* to) noexcept {
  count_call();
  const int result = NEXT(renameat)(from_at, from, to_at, to);
  if (result == 0) renamed(from_at, from, to_at, to);
  return result;
}

int unlink(const char* path) noexcept {
  count_call();
  const int result = NEXT(unlink)(path);
  if (result == 0) unlinked(AT_FDCWD, path);
  return result;
}

int unlinkat(int directory, const char* path, int flags) noexcept {
  count_call();
  const int result = NEXT(unlinkat)(directory, path, flags);
  if (result == 0) unlinked(directory, path);
  return result;
}

int link(const char* from, const char* to) noexcept {
  count_call();
  const int result = NEXT(link)(from, to);
  if (result == 0) linked(AT_FDCWD, from, AT_FDCWD, to);
  return result;
}

int linkat(int from_at, const char* from, int to_at, const char* to, int flags) noexcept {
  count_call();
  const int result = NEXT(linkat)(from_at, from, to_at, to, flags);
  if (result == 0) linked(from_at, from, to_at, to);
  return result;
}

// --- Calls that change nothing, at which a program may be killed as well.

int flock(int descriptor, int operation) noexcept {
  count_call();
  return NEXT(flock)(descriptor, operation);
}

int stat(const char* path, struct stat* status) noexcept {
  count_call();
  return NEXT64(stat, "__stat64_time64", "__stat_time64")(path, status);
}

int fstat(int descriptor, struct stat* status) noexcept {
  count_call();
  return NEXT64(fstat, "__fstat64_time64", "__fstat_time64")(descriptor, status);
}

int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept {
  count_call();
  return NEXT64(fstatat, "__fstatat64_time64", "__fstatat_time64")(directory, path, status,
                                                                   flags);
}

ssize_t readlinkat(int directory, const char* path, char* target, size_t size) noexcept {
  count_call();
  return NEXT(readlinkat)(directory, path, target, size);
}

int fcntl(int descriptor, int command, ...) {
  va_list args;
  va_start(args, command);
  void* const argument = va_arg(args, void*);
  va_end(args);
  count_call();
  const int result =
      NEXT64(fcntl, "__fcntl_time64", "fcntl")(descriptor, command, argument);
  EXPECT_TRUE(command != F_DUPFD_CLOEXEC || file_of(descriptor) == kNoFile)
      << "not recorded";
  return result;
}

}  // extern "C"

namespace crash {

void begin_recording(const std::string& directory) {
  recording = {};
  names.clear();
  file_count = 0;
  file_of_descriptor.clear();
  position.clear();
  appends.clear();
  directory_path = directory;
  ASSERT_EQ(::stat(directory.c_str(), &watched_directory), 0);
  DIR* const stream = opendir(directory.c_str());
  ASSERT_NE(stream, nullptr);
  while (const dirent* const entry = readdir(stream)) {
    struct stat status;
    const std::string path = directory + "/" + entry->d_name;
    if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    names[entry->d_name] = file_count++;
    recording.files.push_back({test::read_file(path), ""});
  }
  closedir(stream);
  recording.names = names;
  is_recording = true;
}

Recording end_recording() {
  is_recording = false;
  // Whether the steps are all that happened.
  std::vector<File> files = recording.files;
  files.resize(static_cast<size_t>(file_count));
  for (const Step& step : recording.steps) {
    if (step.file == kNoFile) continue;
    std::string& content = files[static_cast<size_t>(step.file)].content;
    if (step.kind == Step::kResize) content.resize(step.size);
    if (step.kind == Step::kWrite) {
      content.resize(std::max<size_t>(content.size(), step.offset + step.data.size()));
      content.replace(step.offset, step.data.size(), step.data);
    }
  }
  for (const auto& [name, file] : names) {
    EXPECT_EQ(test::read_file(directory_path + "/" + name),
              files[static_cast<size_t>(file)].content)
        << name << " was written past the recorder";
  }
  return std::move(recording);
}

void limit_writes(size_t bytes) {
  write_limit = bytes;
}

void kill_at_call(int nth) {
  calls_left = nth;
  call_count = 0;
}

int calls_made() {
  return call_count;
}

}  // namespace crash
