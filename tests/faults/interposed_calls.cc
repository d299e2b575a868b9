// The system's functions as the library finds them: defined in the program, they come
// before the C library's. Each goes on to the C library's own unless the plan has a fault
// for the call. Compiled for 64-bit offsets and times, as the library is, which gives many
// of them the names that it imports.
//
// SPDX-License-Identifier: MIT

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include <dirent.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <pwd.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/time.h>
#include <sys/vfs.h>
#include <time.h>
#include <unistd.h>

#include "faults/fault_plan.h"
#include "support/next_function.h"
#include "support/uncounted_allocations.h"

using faults::Call;
using faults::Effect;
using faults::is_library;
using faults::strike;

namespace {

// The C library's function; not a static local, whose guard would be a call more.
#define NEXT(call, function) next_of<decltype(function), Call::call, false>()
#define NEXT_CHECKED(call, function) next_of<decltype(function), Call::call, true>()
template <typename Function, Call kCall, bool kIsChecked>
Function* next_of() {
  static constinit Function* found = nullptr;
  Function* next = __atomic_load_n(&found, __ATOMIC_RELAXED);
  if (next == nullptr) {
    const faults::Faultable& function = faults::faultable(kCall);
    next = test::next_function<Function>(kIsChecked ? function.checked_symbol
                                                    : function.symbol);
    __atomic_store_n(&found, next, __ATOMIC_RELAXED);
  }
  return next;
}

// What a failed call returns.
template <typename Result>
Result failed(const Effect& effect, Result result) {
  if (effect.kind == Effect::kError) errno = effect.error;
  return result;
}

// The result of a call that hands out its error, as those of threads do.
int code_of(const Effect& effect) {
  return effect.error;
}

size_t cut(const Effect& effect, size_t size) {
  return effect.kind == Effect::kOneByte ? 1 : size / 2;
}

bool cuts(const Effect& effect) {
  return effect.kind == Effect::kOneByte || effect.kind == Effect::kHalf;
}

// Of a function that moves bytes: `transfer(size)` does it. 0 at the end.
template <typename Transfer>
ssize_t transferred(Call call, size_t size, Transfer transfer) {
  const Effect* const effect = strike(call, size);
  if (effect == nullptr) return transfer(size);
  if (cuts(*effect)) return transfer(cut(*effect, size));
  return effect->kind == Effect::kEnd ? 0 : failed(*effect, ssize_t{-1});
}

}  // namespace

extern "C" {

// The headers declare these only for callers that want the checks.
int __printf_chk(int flags, const char* format, ...);
int __fprintf_chk(FILE* stream, int flags, const char* format, ...);
int __vsnprintf_chk(char* buffer, size_t size, int flags, size_t room, const char* format,
                    va_list args);

// --- Files.

int open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list args;
    va_start(args, flags);
    mode = va_arg(args, mode_t);
    va_end(args);
  }
  if (const Effect* const effect = strike(Call::kOpen)) return failed(*effect, -1);
  return NEXT(kOpen, open)(path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list args;
    va_start(args, flags);
    mode = va_arg(args, mode_t);
    va_end(args);
  }
  if (const Effect* const effect = strike(Call::kOpenat)) return failed(*effect, -1);
  return NEXT(kOpenat, openat)(directory, path, flags, mode);
}

// A descriptor is gone whatever close() returns.
int close(int fd) {
  const Effect* const effect = strike(Call::kClose);
  const int result = NEXT(kClose, close)(fd);
  return effect != nullptr ? failed(*effect, -1) : result;
}

ssize_t read(int fd, void* buffer, size_t size) {
  return transferred(Call::kRead, size,
                     [&](size_t count) { return NEXT(kRead, read)(fd, buffer, count); });
}

ssize_t write(int fd, const void* buffer, size_t size) {
  return transferred(Call::kWrite, size,
                     [&](size_t count) { return NEXT(kWrite, write)(fd, buffer, count); });
}

off_t lseek(int fd, off_t offset, int whence) noexcept {
  if (const Effect* const effect = strike(Call::kLseek)) return failed(*effect, off_t{-1});
  return NEXT(kLseek, lseek)(fd, offset, whence);
}

int ftruncate(int fd, off_t length) noexcept {
  if (const Effect* const effect = strike(Call::kFtruncate)) return failed(*effect, -1);
  return NEXT(kFtruncate, ftruncate)(fd, length);
}

int fcntl(int fd, int command, ...) {
  va_list args;
  va_start(args, command);
  void* const argument = va_arg(args, void*);
  va_end(args);
  if (const Effect* const effect = strike(Call::kFcntl)) return failed(*effect, -1);
  return NEXT(kFcntl, fcntl)(fd, command, argument);
}

#ifdef __GLIBC__
using IoctlRequest = unsigned long;
#else
using IoctlRequest = int;
#endif

int ioctl(int fd, IoctlRequest request, ...) noexcept {
  va_list args;
  va_start(args, request);
  void* const argument = va_arg(args, void*);
  va_end(args);
  if (const Effect* const effect = strike(Call::kIoctl)) return failed(*effect, -1);
  return NEXT(kIoctl, ioctl)(fd, request, argument);
}

int stat(const char* path, struct stat* status) noexcept {
  if (const Effect* const effect = strike(Call::kStat)) return failed(*effect, -1);
  return NEXT(kStat, stat)(path, status);
}

int lstat(const char* path, struct stat* status) noexcept {
  if (const Effect* const effect = strike(Call::kLstat)) return failed(*effect, -1);
  return NEXT(kLstat, lstat)(path, status);
}

int statx(int directory, const char* path, int flags, unsigned mask,
          struct statx* status) noexcept {
  if (const Effect* const effect = strike(Call::kStatx)) return failed(*effect, -1);
  return NEXT(kStatx, statx)(directory, path, flags, mask, status);
}

int chmod(const char* path, mode_t mode) noexcept {
  if (const Effect* const effect = strike(Call::kChmod)) return failed(*effect, -1);
  return NEXT(kChmod, chmod)(path, mode);
}

int fstat(int fd, struct stat* status) noexcept {
  if (const Effect* const effect = strike(Call::kFstat)) return failed(*effect, -1);
  return NEXT(kFstat, fstat)(fd, status);
}

int statfs(const char* path, struct statfs* status) noexcept {
  if (const Effect* const effect = strike(Call::kStatfs)) return failed(*effect, -1);
  return NEXT(kStatfs, statfs)(path, status);
}

int unlink(const char* path) noexcept {
  if (const Effect* const effect = strike(Call::kUnlink)) return failed(*effect, -1);
  return NEXT(kUnlink, unlink)(path);
}

int rename(const char* from, const char* to) noexcept {
  if (const Effect* const effect = strike(Call::kRename)) return failed(*effect, -1);
  return NEXT(kRename, rename)(from, to);
}

int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept {
  if (const Effect* const effect = strike(Call::kFstatat)) return failed(*effect, -1);
  return NEXT(kFstatat, fstatat)(directory, path, status, flags);
}

ssize_t readlinkat(int directory, const char* path, char* target, size_t size) noexcept {
  if (const Effect* const effect = strike(Call::kReadlinkat))
    return failed(*effect, ssize_t{-1});
  return NEXT(kReadlinkat, readlinkat)(directory, path, target, size);
}

int flock(int fd, int operation) noexcept {
  if (const Effect* const effect = strike(Call::kFlock)) return failed(*effect, -1);
  return NEXT(kFlock, flock)(fd, operation);
}

int fsync(int fd) {
  if (const Effect* const effect = strike(Call::kFsync)) return failed(*effect, -1);
  return NEXT(kFsync, fsync)(fd);
}

int fchmod(int fd, mode_t mode) noexcept {
  if (const Effect* const effect = strike(Call::kFchmod)) return failed(*effect, -1);
  return NEXT(kFchmod, fchmod)(fd, mode);
}

int fchown(int fd, uid_t user, gid_t group) noexcept {
  if (const Effect* const effect = strike(Call::kFchown)) return failed(*effect, -1);
  return NEXT(kFchown, fchown)(fd, user, group);
}

int futimens(int fd, const struct timespec* times) noexcept {
  if (const Effect* const effect = strike(Call::kFutimens)) return failed(*effect, -1);
  return NEXT(kFutimens, futimens)(fd, times);
}

int fstatvfs(int fd, struct statvfs* status) noexcept {
  if (const Effect* const effect = strike(Call::kFstatvfs)) return failed(*effect, -1);
  return NEXT(kFstatvfs, fstatvfs)(fd, status);
}

int unlinkat(int directory, const char* path, int flags) noexcept {
  if (const Effect* const effect = strike(Call::kUnlinkat)) return failed(*effect, -1);
  return NEXT(kUnlinkat, unlinkat)(directory, path, flags);
}

int renameat(int from_directory, const char* from, int to_directory,
             const char* to) noexcept {
  if (const Effect* const effect = strike(Call::kRenameat)) return failed(*effect, -1);
  return NEXT(kRenameat, renameat)(from_directory, from, to_directory, to);
}

// --- Directories.

int mkdir(const char* path, mode_t mode) noexcept {
  if (const Effect* const effect = strike(Call::kMkdir)) return failed(*effect, -1);
  return NEXT(kMkdir, mkdir)(path, mode);
}

int rmdir(const char* path) noexcept {
  if (const Effect* const effect = strike(Call::kRmdir)) return failed(*effect, -1);
  return NEXT(kRmdir, rmdir)(path);
}

DIR* opendir(const char* path) {
  if (const Effect* const effect = strike(Call::kOpendir)) {
    return failed<DIR*>(*effect, nullptr);
  }
  return NEXT(kOpendir, opendir)(path);
}

DIR* fdopendir(int fd) {
  if (const Effect* const effect = strike(Call::kFdopendir)) {
    return failed<DIR*>(*effect, nullptr);
  }
  return NEXT(kFdopendir, fdopendir)(fd);
}

struct dirent* readdir(DIR* directory) {
  if (const Effect* const effect = strike(Call::kReaddir)) {
    return failed<struct dirent*>(*effect, nullptr);
  }
  return NEXT(kReaddir, readdir)(directory);
}

int closedir(DIR* directory) {
  const Effect* const effect = strike(Call::kClosedir);
  const int result = NEXT(kClosedir, closedir)(directory);
  return effect != nullptr ? failed(*effect, -1) : result;
}

int scandir(const char* path, struct dirent*** names, int (*select)(const struct dirent*),
            int (*compare)(const struct dirent**, const struct dirent**)) {
  if (const Effect* const effect = strike(Call::kScandir)) return failed(*effect, -1);
  return NEXT(kScandir, scandir)(path, names, select, compare);
}

// --- Memory maps and locked memory.

void* mmap(void* address, size_t length, int protection, int flags, int fd,
           off_t offset) noexcept {
  if (const Effect* const effect = strike(Call::kMmap)) return failed(*effect, MAP_FAILED);
  return NEXT(kMmap, mmap)(address, length, protection, flags, fd, offset);
}

int munmap(void* address, size_t length) noexcept {
  if (const Effect* const effect = strike(Call::kMunmap)) return failed(*effect, -1);
  return NEXT(kMunmap, munmap)(address, length);
}

int msync(void* address, size_t length, int flags) {
  if (const Effect* const effect = strike(Call::kMsync)) return failed(*effect, -1);
  return NEXT(kMsync, msync)(address, length, flags);
}

// The library's request goes no further: a limit of the system, and the sanitizers' own
// memory, would make the result depend on the machine.
int mlockall(int flags) noexcept {
  if (const Effect* const effect = strike(Call::kMlockall)) return failed(*effect, -1);
  return is_library() ? 0 : NEXT(kMlockall, mlockall)(flags);
}

int munlockall() noexcept {
  if (const Effect* const effect = strike(Call::kMunlockall)) return failed(*effect, -1);
  return is_library() ? 0 : NEXT(kMunlockall, munlockall)();
}

// --- Streams.

FILE* fopen(const char* path, const char* mode) {
  if (const Effect* const effect = strike(Call::kFopen)) {
    return failed<FILE*>(*effect, nullptr);
  }
  return NEXT(kFopen, fopen)(path, mode);
}

FILE* fdopen(int fd, const char* mode) noexcept {
  if (const Effect* const effect = strike(Call::kFdopen)) {
    return failed<FILE*>(*effect, nullptr);
  }
  return NEXT(kFdopen, fdopen)(fd, mode);
}

// A stream is gone whatever fclose() returns.
int fclose(FILE* stream) {
  const Effect* const effect = strike(Call::kFclose);
  const int result = NEXT(kFclose, fclose)(stream);
  return effect != nullptr ? failed(*effect, EOF) : result;
}

int fflush(FILE* stream) {
  if (const Effect* const effect = strike(Call::kFflush)) return failed(*effect, EOF);
  return NEXT(kFflush, fflush)(stream);
}

char* fgets(char* buffer, int size, FILE* stream) {
  if (const Effect* const effect = strike(Call::kFgets)) {
    return failed<char*>(*effect, nullptr);
  }
  return NEXT(kFgets, fgets)(buffer, size, stream);
}

int getc(FILE* stream) {
  if (const Effect* const effect = strike(Call::kGetc)) return failed(*effect, EOF);
  return NEXT(kGetc, getc)(stream);
}

#ifdef __GLIBC__
// What the C library's headers call when a stream's buffer is used up.
int __uflow(FILE* stream) {
  if (const Effect* const effect = strike(Call::kUflow)) return failed(*effect, EOF);
  return NEXT(kUflow, __uflow)(stream);
}
#endif

size_t fread(void* buffer, size_t size, size_t count, FILE* stream) {
  const Effect* const effect = strike(Call::kFread, size * count);
  if (effect == nullptr) return NEXT(kFread, fread)(buffer, size, count, stream);
  if (!cuts(*effect)) return failed(*effect, size_t{0});
  return NEXT(kFread, fread)(buffer, size, cut(*effect, count), stream);
}

size_t fwrite(const void* buffer, size_t size, size_t count, FILE* stream) {
  const Effect* const effect = strike(Call::kFwrite, size * count);
  // What compilers make of fputs() of a constant text.
  if (is_library() && stream == stderr) return effect == nullptr ? count : 0;
  if (effect == nullptr) return NEXT(kFwrite, fwrite)(buffer, size, count, stream);
  if (!cuts(*effect)) return failed(*effect, size_t{0});
  return NEXT(kFwrite, fwrite)(buffer, size, cut(*effect, count), stream);
}

// What the library prints is formatted, so that its arguments are read, and dropped.
static int print(Call call, FILE* stream, const char* format, va_list args) {
  if (const Effect* const effect = strike(call)) return failed(*effect, -1);
  if (!is_library()) return vfprintf(stream, format, args);
  char dropped[256];
  return NEXT(kVsnprintf, vsnprintf)(dropped, sizeof dropped, format, args);
}

#define PRINT(call, stream, format)                           \
  va_list args;                                               \
  va_start(args, format);                                     \
  const int result = print(Call::call, stream, format, args); \
  va_end(args);                                               \
  return result

int printf(const char* format, ...) {
  PRINT(kPrintf, stdout, format);
}

int __printf_chk(int, const char* format, ...) {
  PRINT(kPrintf, stdout, format);
}

int fprintf(FILE* stream, const char* format, ...) {
  PRINT(kFprintf, stream, format);
}

int __fprintf_chk(FILE* stream, int, const char* format, ...) {
  PRINT(kFprintf, stream, format);
}

int fputs(const char* text, FILE* stream) {
  if (const Effect* const effect = strike(Call::kFputs)) return failed(*effect, EOF);
  return is_library() ? 1 : NEXT(kFputs, fputs)(text, stream);
}

int vsnprintf(char* buffer, size_t size, const char* format, va_list args) noexcept {
  if (const Effect* const effect = strike(Call::kVsnprintf)) return failed(*effect, -1);
  return NEXT(kVsnprintf, vsnprintf)(buffer, size, format, args);
}

int __vsnprintf_chk(char* buffer, size_t size, int flags, size_t room, const char* format,
                    va_list args) {
  if (const Effect* const effect = strike(Call::kVsnprintf)) return failed(*effect, -1);
  return NEXT_CHECKED(kVsnprintf, __vsnprintf_chk)(buffer, size, flags, room, format, args);
}

// --- Network and users.

struct hostent* gethostbyname2(const char* name, int family) {
  if (const Effect* const effect = strike(Call::kGethostbyname2)) {
    h_errno = effect->error == ENOENT ? HOST_NOT_FOUND : TRY_AGAIN;
    return failed<struct hostent*>(*effect, nullptr);
  }
#ifndef __GLIBC__
  const test::UncountedAllocations uncounted;  // musl keeps the record for its next call
#endif
  return NEXT(kGethostbyname2, gethostbyname2)(name, family);
}

int socket(int family, int type, int protocol) noexcept {
  if (const Effect* const effect = strike(Call::kSocket)) return failed(*effect, -1);
  return NEXT(kSocket, socket)(family, type, protocol);
}

int connect(int fd, const struct sockaddr* address, socklen_t length) {
  if (const Effect* const effect = strike(Call::kConnect)) return failed(*effect, -1);
  return NEXT(kConnect, connect)(fd, address, length);
}

int poll(struct pollfd* fds, nfds_t count, int timeout) {
  if (const Effect* const effect = strike(Call::kPoll)) {
    return effect->kind == Effect::kEnd ? 0 : failed(*effect, -1);
  }
  return NEXT(kPoll, poll)(fds, count, timeout);
}

int getsockopt(int fd, int level, int name, void* value, socklen_t* size) noexcept {
  if (const Effect* const effect = strike(Call::kGetsockopt)) return failed(*effect, -1);
  return NEXT(kGetsockopt, getsockopt)(fd, level, name, value, size);
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t size) noexcept {
  if (const Effect* const effect = strike(Call::kSetsockopt)) return failed(*effect, -1);
  return NEXT(kSetsockopt, setsockopt)(fd, level, name, value, size);
}

ssize_t send(int fd, const void* buffer, size_t size, int flags) {
  return transferred(Call::kSend, size, [&](size_t count) {
    return NEXT(kSend, send)(fd, buffer, count, flags);
  });
}

ssize_t recv(int fd, void* buffer, size_t size, int flags) {
  return transferred(Call::kRecv, size, [&](size_t count) {
    return NEXT(kRecv, recv)(fd, buffer, count, flags);
  });
}

int shutdown(int fd, int how) noexcept {
  if (const Effect* const effect = strike(Call::kShutdown)) return failed(*effect, -1);
  return NEXT(kShutdown, shutdown)(fd, how);
}

struct passwd* getpwnam(const char* name) {
  if (const Effect* const effect = strike(Call::kGetpwnam)) {
    return failed<struct passwd*>(*effect, nullptr);
  }
#ifndef __GLIBC__
  const test::UncountedAllocations uncounted;  // as above
#endif
  return NEXT(kGetpwnam, getpwnam)(name);
}

// --- Time.

int gettimeofday(struct timeval* time, void* zone) noexcept {
  if (const Effect* const effect = strike(Call::kGettimeofday)) return failed(*effect, -1);
  return NEXT(kGettimeofday, gettimeofday)(time, zone);
}

int nanosleep(const struct timespec* time, struct timespec* left) {
  if (const Effect* const effect = strike(Call::kNanosleep)) return failed(*effect, -1);
  return NEXT(kNanosleep, nanosleep)(time, left);
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* special,
           struct timeval* timeout) {
  if (const Effect* const effect = strike(Call::kSelect)) return failed(*effect, -1);
  return NEXT(kSelect, select)(count, readable, writable, special, timeout);
}

// --- Threads. These hand out their error and leave errno alone.

struct Start {
  void* (*function)(void*);
  void* argument;
};

// Taken by the new thread, so there is one at a time: the next thread is started only
// after that. No heap, whose balance is kept.
static Start start_of_thread;
static pthread_mutex_t start_mutex = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t start_taken = PTHREAD_COND_INITIALIZER;
static bool start_is_pending = false;

static void* run_library_thread(void*) {
  pthread_mutex_lock(&start_mutex);
  const Start start = start_of_thread;
  start_is_pending = false;
  NEXT(kPthreadCondSignal, pthread_cond_signal)(&start_taken);
  pthread_mutex_unlock(&start_mutex);
  faults::adopt_thread();
  return start.function(start.argument);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                   void* (*function)(void*), void* argument) noexcept {
  const auto next = NEXT(kPthreadCreate, pthread_create);
  if (const Effect* const effect = strike(Call::kPthreadCreate)) return code_of(*effect);
  if (!is_library()) return next(thread, attributes, function, argument);
  pthread_mutex_lock(&start_mutex);
  start_of_thread = {function, argument};
  start_is_pending = true;
  const int result = next(thread, attributes, run_library_thread, nullptr);
  if (result != 0) start_is_pending = false;
  while (start_is_pending) {
    NEXT(kPthreadCondWait, pthread_cond_wait)(&start_taken, &start_mutex);
  }
  pthread_mutex_unlock(&start_mutex);
  return result;
}

int pthread_getschedparam(pthread_t thread, int* policy, sched_param* param) noexcept {
  if (const Effect* const effect = strike(Call::kPthreadGetschedparam)) {
    return code_of(*effect);
  }
  return NEXT(kPthreadGetschedparam, pthread_getschedparam)(thread, policy, param);
}

int pthread_setschedparam(pthread_t thread, int policy, const sched_param* param) noexcept {
  if (const Effect* const effect = strike(Call::kPthreadSetschedparam)) {
    return code_of(*effect);
  }
  // Real-time priorities need rights that the test has not everywhere.
  if (is_library()) return 0;
  return NEXT(kPthreadSetschedparam, pthread_setschedparam)(thread, policy, param);
}

int sched_get_priority_max(int policy) noexcept {
  if (const Effect* const effect = strike(Call::kSchedGetPriorityMax)) {
    return failed(*effect, -1);
  }
  return NEXT(kSchedGetPriorityMax, sched_get_priority_max)(policy);
}

int sched_get_priority_min(int policy) noexcept {
  if (const Effect* const effect = strike(Call::kSchedGetPriorityMin)) {
    return failed(*effect, -1);
  }
  return NEXT(kSchedGetPriorityMin, sched_get_priority_min)(policy);
}

// A mutex or condition of zeros works, as the library relies on.
int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* kind) noexcept {
  if (const Effect* const effect = strike(Call::kPthreadMutexInit)) return code_of(*effect);
  return NEXT(kPthreadMutexInit, pthread_mutex_init)(mutex, kind);
}

int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
  const Effect* const effect = strike(Call::kPthreadMutexDestroy);
  const int result = NEXT(kPthreadMutexDestroy, pthread_mutex_destroy)(mutex);
  return effect != nullptr ? code_of(*effect) : result;
}

int pthread_cond_init(pthread_cond_t* cond, const pthread_condattr_t* kind) noexcept {
  if (const Effect* const effect = strike(Call::kPthreadCondInit)) return code_of(*effect);
  return NEXT(kPthreadCondInit, pthread_cond_init)(cond, kind);
}

int pthread_cond_destroy(pthread_cond_t* cond) noexcept {
  const Effect* const effect = strike(Call::kPthreadCondDestroy);
  const int result = NEXT(kPthreadCondDestroy, pthread_cond_destroy)(cond);
  return effect != nullptr ? code_of(*effect) : result;
}

int pthread_cond_signal(pthread_cond_t* cond) noexcept {
  if (const Effect* const effect = strike(Call::kPthreadCondSignal)) {
    return code_of(*effect);
  }
  return NEXT(kPthreadCondSignal, pthread_cond_signal)(cond);
}

int pthread_cond_broadcast(pthread_cond_t* cond) noexcept {
  if (const Effect* const effect = strike(Call::kPthreadCondBroadcast)) {
    return code_of(*effect);
  }
  return NEXT(kPthreadCondBroadcast, pthread_cond_broadcast)(cond);
}

int pthread_cond_wait(pthread_cond_t* cond, pthread_mutex_t* mutex) {
  if (const Effect* const effect = strike(Call::kPthreadCondWait)) return code_of(*effect);
  return NEXT(kPthreadCondWait, pthread_cond_wait)(cond, mutex);
}

int pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                           const struct timespec* deadline) {
  if (const Effect* const effect = strike(Call::kPthreadCondTimedwait)) {
    return code_of(*effect);
  }
  return NEXT(kPthreadCondTimedwait, pthread_cond_timedwait)(cond, mutex, deadline);
}

}  // extern "C"
