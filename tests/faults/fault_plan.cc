// SPDX-License-Identifier: MIT

#include "faults/fault_plan.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace faults {
namespace {

// The symbols of functions with 64-bit offsets, and of those with 64-bit times, which on
// 32-bit targets differ once more.
#ifdef __GLIBC__
#define OFFSET64(name) name "64"
#else
#define OFFSET64(name) name
#endif
#if __SIZEOF_LONG__ == 8
#define TIME64(name, wide, musl) name
#define OFFSET_TIME64(name, wide, musl) OFFSET64(name)
#elif defined(__GLIBC__)
#define TIME64(name, wide, musl) wide
#define OFFSET_TIME64(name, wide, musl) wide
#else
#define TIME64(name, wide, musl) musl
#define OFFSET_TIME64(name, wide, musl) musl
#endif

constexpr Effect fails_with(int error) {
  return {Effect::kError, error};
}
constexpr Effect kEnds = {Effect::kEnd, 0};
constexpr Effect kTransfersOne = {Effect::kOneByte, 0};
constexpr Effect kTransfersHalf = {Effect::kHalf, 0};

#define EFFECTS(name, ...) constexpr Effect name[] = {__VA_ARGS__}
#define E(error) fails_with(error)
// Errors first, and of these first those that do not ask for another try.
EFFECTS(kCloseEffects, E(EIO), E(ENOSPC), E(EINTR));
EFFECTS(kConnectEffects, E(ECONNREFUSED), E(ENETUNREACH), E(ETIMEDOUT), E(EAGAIN),
        E(EINTR));
EFFECTS(kCondWaitEffects, E(EINVAL), E(EPERM));
EFFECTS(kCreateEffects, E(EAGAIN), E(ENOMEM), E(EPERM));
EFFECTS(kDestroyEffects, E(EBUSY), E(EINVAL));
EFFECTS(kDescriptorEffects, E(EMFILE), E(ENFILE), E(ENOMEM), E(EACCES), E(EAFNOSUPPORT));
EFFECTS(kFcntlEffects, E(EAGAIN), E(EACCES), E(ENOLCK), E(EDEADLK), E(EIO), E(EINTR));
EFFECTS(kFdopendirEffects, E(ENOMEM), E(EBADF), E(ENOTDIR), E(EINTR));
EFFECTS(kFgetsEffects, E(EIO), E(ECONNRESET), E(EAGAIN), E(EINTR), kEnds);
EFFECTS(kFlockEffects, E(ENOLCK), E(EBADF), E(EAGAIN), E(EINTR));
EFFECTS(kFreadEffects, E(EIO), E(ECONNRESET), E(EAGAIN), E(EINTR), kEnds, kTransfersOne,
        kTransfersHalf);
EFFECTS(kFsyncEffects, E(EIO), E(ENOSPC), E(EINVAL), E(EINTR));
EFFECTS(kFtruncateEffects, E(EIO), E(EFBIG), E(EINVAL), E(EINTR));
EFFECTS(kHostEffects, E(ENOENT), E(EAGAIN), E(ENOMEM), E(EMFILE));
EFFECTS(kInitEffects, E(ENOMEM), E(EAGAIN));
EFFECTS(kInvalidEffects, E(EINVAL));
EFFECTS(kIoctlEffects, E(EIO), E(ENOTTY), E(EINTR));
EFFECTS(kLseekEffects, E(EINVAL), E(EOVERFLOW), E(ESPIPE));
EFFECTS(kMemoryEffects, E(ENOMEM));
EFFECTS(kMkdirEffects, E(ENOSPC), E(EACCES), E(EROFS), E(EMLINK), E(EIO), E(ENOENT),
        E(EEXIST));
EFFECTS(kMlockEffects, E(ENOMEM), E(EPERM), E(EAGAIN));
EFFECTS(kMmapEffects, E(ENOMEM), E(EAGAIN), E(EACCES), E(ENODEV));
EFFECTS(kMsyncEffects, E(EIO), E(ENOMEM), E(EBUSY));
EFFECTS(kMunmapEffects, E(EINVAL), E(ENOMEM));
EFFECTS(kNoThreadEffects, E(ESRCH));
EFFECTS(kOpenEffects, E(EMFILE), E(ENFILE), E(ENOMEM), E(ENOSPC), E(EACCES), E(EROFS),
        E(ENOENT), E(ENOTDIR), E(EIO), E(EINTR));
EFFECTS(kOwnerEffects, E(EPERM), E(EROFS), E(EIO), E(EINVAL), E(EINTR));
EFFECTS(kPollEffects, E(ENOMEM), E(EINVAL), E(EINTR), kEnds);
EFFECTS(kPrintEffects, E(EIO), E(ENOSPC), E(EPIPE), E(EAGAIN), E(EINTR));
EFFECTS(kPwnamEffects, E(EIO), E(EMFILE), E(ENFILE), E(ENOMEM), E(EINTR), kEnds);
EFFECTS(kReadEffects, E(EIO), E(EISDIR), E(EAGAIN), E(EINTR), kEnds, kTransfersOne,
        kTransfersHalf);
EFFECTS(kReaddirEffects, E(EIO), E(ENOMEM), E(EINTR), kEnds);
EFFECTS(kReadlinkEffects, E(EIO), E(EACCES), E(ENOMEM), E(ENOTDIR), E(EINTR));
EFFECTS(kRecvEffects, E(ECONNRESET), E(ENOMEM), E(ENOTSOCK), E(EAGAIN), E(EINTR), kEnds,
        kTransfersOne, kTransfersHalf);
EFFECTS(kRenameEffects, E(ENOSPC), E(EACCES), E(EXDEV), E(EROFS), E(EIO), E(EINTR));
EFFECTS(kRmdirEffects, E(ENOTEMPTY), E(EBUSY), E(EACCES), E(EROFS), E(EIO));
EFFECTS(kScandirEffects, E(ENOMEM), E(EMFILE), E(EACCES), E(EIO));
EFFECTS(kSchedEffects, E(EPERM), E(EINVAL), E(ESRCH));
EFFECTS(kSelectEffects, E(EINVAL), E(ENOMEM), E(EINTR));
EFFECTS(kSendEffects, E(EPIPE), E(ECONNRESET), E(ENOMEM), E(ENOTSOCK), E(EAGAIN), E(EINTR),
        kTransfersOne, kTransfersHalf);
EFFECTS(kShutdownEffects, E(ENOTCONN), E(EIO));
EFFECTS(kSleepEffects, E(EINTR), E(EINVAL));
EFFECTS(kSockoptEffects, E(ENOBUFS), E(EBADF), E(ENOMEM));
EFFECTS(kStatatEffects, E(EIO), E(ENOMEM), E(EACCES), E(EOVERFLOW), E(EINTR));
EFFECTS(kStatEffects, E(EIO), E(ENOMEM), E(EACCES), E(ENOENT), E(ELOOP), E(ENOTDIR),
        E(EOVERFLOW), E(EINTR));
EFFECTS(kStatxEffects, E(ENOMEM), E(EACCES), E(EIO), E(ENOSYS), E(EPERM), E(EINTR));
EFFECTS(kStatfsEffects, E(EIO), E(ENOMEM), E(EACCES), E(EINTR));
EFFECTS(kTextEffects, E(EOVERFLOW), E(ENOMEM));
EFFECTS(kTimedwaitEffects, E(EINVAL), E(ETIMEDOUT), E(EINTR));
EFFECTS(kTimeEffects, E(EPERM), E(EFAULT));
EFFECTS(kUnlinkEffects, E(EIO), E(EACCES), E(EBUSY), E(EROFS), E(EPERM), E(EISDIR),
        E(ENOENT), E(EINTR));
EFFECTS(kWriteEffects, E(ENOSPC), E(EIO), E(EFBIG), E(EDQUOT), E(EAGAIN), E(EINTR),
        kTransfersOne, kTransfersHalf);
#undef E

constexpr Faultable kFaultables[] = {
    {Call::kAny, "", {}},
    {Call::kAllocation, "malloc", kMemoryEffects},
    {Call::kChmod, "chmod", kOwnerEffects},
    {Call::kClose, "close", kCloseEffects},
    {Call::kClosedir, "closedir", kCloseEffects},
    {Call::kConnect, "connect", kConnectEffects},
    {Call::kFchmod, "fchmod", kOwnerEffects},
    {Call::kFchown, "fchown", kOwnerEffects},
    {Call::kFclose, "fclose", kCloseEffects},
    {Call::kFcntl, OFFSET_TIME64("fcntl", "__fcntl_time64", "fcntl"), kFcntlEffects},
    {Call::kFdopen, "fdopen", kMlockEffects},
    {Call::kFdopendir, "fdopendir", kFdopendirEffects},
    {Call::kFflush, "fflush", kPrintEffects},
    {Call::kFgets, "fgets", kFgetsEffects},
    {Call::kFlock, "flock", kFlockEffects},
    {Call::kFopen, OFFSET64("fopen"), kOpenEffects},
    {Call::kFprintf, "fprintf", kPrintEffects, "__fprintf_chk"},
    {Call::kFputs, "fputs", kPrintEffects},
    {Call::kFread, "fread", kFreadEffects},
    {Call::kFstat, OFFSET_TIME64("fstat", "__fstat64_time64", "__fstat_time64"),
     kStatEffects},
    {Call::kFstatat, OFFSET_TIME64("fstatat", "__fstatat64_time64", "__fstatat_time64"),
     kStatatEffects},
    {Call::kFstatvfs, OFFSET64("fstatvfs"), kStatfsEffects},
    {Call::kFsync, "fsync", kFsyncEffects},
    {Call::kFtruncate, OFFSET64("ftruncate"), kFtruncateEffects},
    {Call::kFutimens, TIME64("futimens", "__futimens64", "__futimens_time64"),
     kOwnerEffects},
    {Call::kFwrite, "fwrite", kWriteEffects},
    {Call::kGetc, "getc", kFgetsEffects},
    {Call::kGethostbyname2, "gethostbyname2", kHostEffects},
    {Call::kGetpwnam, "getpwnam", kPwnamEffects},
    {Call::kGetsockopt, TIME64("getsockopt", "__getsockopt64", "getsockopt"),
     kSockoptEffects},
    {Call::kGettimeofday,
     TIME64("gettimeofday", "__gettimeofday64", "__gettimeofday_time64"), kTimeEffects},
    {Call::kIoctl, TIME64("ioctl", "__ioctl_time64", "ioctl"), kIoctlEffects},
    {Call::kLseek, OFFSET64("lseek"), kLseekEffects},
    {Call::kLstat, OFFSET_TIME64("lstat", "__lstat64_time64", "__lstat_time64"),
     kStatEffects},
    {Call::kMkdir, "mkdir", kMkdirEffects},
    {Call::kMlockall, "mlockall", kMlockEffects},
    {Call::kMmap, OFFSET64("mmap"), kMmapEffects},
    {Call::kMsync, "msync", kMsyncEffects},
    {Call::kMunlockall, "munlockall", kMlockEffects},
    {Call::kMunmap, "munmap", kMunmapEffects},
    {Call::kNanosleep, TIME64("nanosleep", "__nanosleep64", "__nanosleep_time64"),
     kSleepEffects},
    {Call::kOpen, OFFSET64("open"), kOpenEffects},
    {Call::kOpenat, OFFSET64("openat"), kOpenEffects},
    {Call::kOpendir, "opendir", kOpenEffects},
    {Call::kPoll, "poll", kPollEffects},
    {Call::kPrintf, "printf", kPrintEffects, "__printf_chk"},
    {Call::kPthreadCondBroadcast, "pthread_cond_broadcast", kInvalidEffects},
    {Call::kPthreadCondDestroy, "pthread_cond_destroy", kDestroyEffects},
    {Call::kPthreadCondInit, "pthread_cond_init", kInitEffects},
    {Call::kPthreadCondSignal, "pthread_cond_signal", kInvalidEffects},
    {Call::kPthreadCondTimedwait,
     TIME64("pthread_cond_timedwait", "__pthread_cond_timedwait64",
            "__pthread_cond_timedwait_time64"),
     kTimedwaitEffects},
    {Call::kPthreadCondWait, "pthread_cond_wait", kCondWaitEffects},
    {Call::kPthreadCreate, "pthread_create", kCreateEffects},
    {Call::kPthreadGetschedparam, "pthread_getschedparam", kNoThreadEffects},
    {Call::kPthreadMutexDestroy, "pthread_mutex_destroy", kDestroyEffects},
    {Call::kPthreadMutexInit, "pthread_mutex_init", kInitEffects},
    {Call::kPthreadSetschedparam, "pthread_setschedparam", kSchedEffects},
    {Call::kRead, "read", kReadEffects},
    {Call::kReaddir, OFFSET64("readdir"), kReaddirEffects},
    {Call::kReadlinkat, "readlinkat", kReadlinkEffects},
    {Call::kRecv, "recv", kRecvEffects},

    {Call::kRename, "rename", kRenameEffects},
    {Call::kRenameat, "renameat", kRenameEffects},
    {Call::kRmdir, "rmdir", kRmdirEffects},
    {Call::kScandir, OFFSET64("scandir"), kScandirEffects},
    {Call::kSchedGetPriorityMax, "sched_get_priority_max", kInvalidEffects},
    {Call::kSchedGetPriorityMin, "sched_get_priority_min", kInvalidEffects},
    {Call::kSelect, TIME64("select", "__select64", "__select_time64"), kSelectEffects},
    {Call::kSend, "send", kSendEffects},
    {Call::kSetsockopt, TIME64("setsockopt", "__setsockopt64", "setsockopt"),
     kSockoptEffects},
    {Call::kShutdown, "shutdown", kShutdownEffects},
    {Call::kSocket, "socket", kDescriptorEffects},
    {Call::kStat, OFFSET_TIME64("stat", "__stat64_time64", "__stat_time64"), kStatEffects},
    {Call::kStatfs, OFFSET64("statfs"), kStatfsEffects},
    {Call::kStatx, "statx", kStatxEffects},
    {Call::kUflow, "__uflow", kFgetsEffects},
    {Call::kUnlink, "unlink", kUnlinkEffects},
    {Call::kUnlinkat, "unlinkat", kUnlinkEffects},
    {Call::kVsnprintf, "vsnprintf", kTextEffects, "__vsnprintf_chk"},
    {Call::kWrite, "write", kWriteEffects},
};
static_assert(std::size(kFaultables) == kCalls);

// A caller may try again for ever on these, and does: they pass after a while.
constexpr int kPatience = 20;

constexpr auto relaxed = std::memory_order_relaxed;

Fault plan;
std::atomic<bool> is_running{false};
std::atomic<int> call_counts[kCalls];
std::atomic<int> strike_counts[kCalls];
thread_local bool is_library_thread = false;
void (*watcher)(int nth) = nullptr;

bool asks_for_another_try(const Effect& effect) {
  return effect.kind == Effect::kError && (effect.error == EINTR || effect.error == EAGAIN);
}

// The errors come first among the effects.
const Effect& nth_error(const Faultable& function, int n) {
  size_t errors = 0;
  while (errors < function.effects.size() &&
         function.effects[errors].kind == Effect::kError) {
    ++errors;
  }
  return function.effects[static_cast<size_t>(n) % errors];
}

bool is_transfer(Effect::Kind kind) {
  return kind == Effect::kOneByte || kind == Effect::kHalf;
}

}  // namespace

const Faultable& faultable(Call call) {
  return kFaultables[static_cast<size_t>(call)];
}

void begin_plan(const Fault& fault) {
  plan = fault;
  for (size_t i = 0; i < kCalls; ++i) {
    call_counts[i].store(0, relaxed);
    strike_counts[i].store(0, relaxed);
  }
}

void resume_plan() {
  is_library_thread = true;
  is_running.store(true);
}

void pause_plan() {
  is_running.store(false);
  is_library_thread = false;
}

void end_plan() {
  pause_plan();
  plan = {};
}

int calls(Call call) {
  return call_counts[static_cast<size_t>(call)].load(relaxed);
}

int strikes(Call call) {
  return strike_counts[static_cast<size_t>(call)].load(relaxed);
}

const Effect* strike(Call call, size_t size) {
  if (!is_library_thread || !is_running.load(relaxed)) return nullptr;
  const auto index = static_cast<size_t>(call);
  const auto any = static_cast<size_t>(Call::kAny);
  const int count_of_all = call_counts[any].fetch_add(1, relaxed) + 1;
  const int count_of_call = call_counts[index].fetch_add(1, relaxed) + 1;
  if (watcher != nullptr) {
    const int kept = errno;
    is_library_thread = false;
    watcher(count_of_all);
    is_library_thread = true;
    errno = kept;
  }
  const bool is_any = plan.call == Call::kAny;
  if (plan.nth == 0 || (!is_any && plan.call != call)) return nullptr;
  const int count = is_any ? count_of_all : count_of_call;
  if (count < plan.nth || (count > plan.nth && !plan.and_all_later)) return nullptr;
  const Effect& effect =
      is_any ? nth_error(kFaultables[index], plan.effect.error) : plan.effect;
  if (is_transfer(effect.kind) && size < 2) return nullptr;
  if (asks_for_another_try(effect) && count - plan.nth >= kPatience) return nullptr;
  strike_counts[any].fetch_add(1, relaxed);
  strike_counts[index].fetch_add(1, relaxed);
  return &effect;
}

void watch_calls(void (*new_watcher)(int nth)) {
  watcher = new_watcher;
}

bool is_library() {
  return is_library_thread;
}

void adopt_thread() {
  is_library_thread = true;
}

void describe(const Fault& fault, char* text, size_t size) {
  if (fault.nth == 0) {
    std::snprintf(text, size, "nothing fails");
    return;
  }
  const bool is_any = fault.call == Call::kAny;
  const char* effect = "fails";
  char error[80] = "";
  switch (fault.effect.kind) {
    case Effect::kError:
      if (!is_any) {
        std::snprintf(error, sizeof error, " with: %s", std::strerror(fault.effect.error));
      }
      break;
    case Effect::kEnd:
      effect = "meets the end";
      break;
    case Effect::kOneByte:
      effect = "transfers one byte";
      break;
    case Effect::kHalf:
      effect = "transfers half";
      break;
  }
  std::snprintf(text, size, "%s: call %d%s %s%s",
                is_any                            ? "any function"
                : fault.call == Call::kAllocation ? "malloc, calloc, realloc"
                                                  : faultable(fault.call).symbol,
                fault.nth, fault.and_all_later ? " and all later ones" : "", effect, error);
}

}  // namespace faults
