// Which call of the library fails, and how.
//
// The program defines the functions of the system that the library imports (see
// interposed_calls.cc), and each asks strike() before it does its work. Only the library's
// calls count: those made between resume() and pause() by the thread that began the plan,
// and those of the threads that the library starts meanwhile.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_FAULTS_FAULT_PLAN_H
#define GROUNDWORK_TESTS_FAULTS_FAULT_PLAN_H

#include <cstddef>
#include <span>

namespace faults {

// The faultable functions, by the name that the source of a caller has.
enum class Call : unsigned char {
  kAny,         // each of those below but memory
  kAllocation,  // malloc, calloc and realloc, also on behalf of the library in the C
                // library
  kChmod,
  kClose,
  kClosedir,
  kConnect,
  kFchmod,
  kFchown,
  kFclose,
  kFcntl,
  kFdopen,
  kFdopendir,
  kFflush,
  kFgets,
  kFlock,
  kFopen,
  kFprintf,
  kFputs,
  kFread,
  kFstat,
  kFstatat,
  kFstatvfs,
  kFsync,
  kFtruncate,
  kFutimens,
  kFwrite,
  kGetc,
  kGethostbyname2,
  kGetpwnam,
  kGetsockopt,
  kGettimeofday,
  kIoctl,
  kLseek,
  kLstat,
  kMkdir,
  kMlockall,
  kMmap,
  kMsync,
  kMunlockall,
  kMunmap,
  kNanosleep,
  kOpen,
  kOpenat,
  kOpendir,
  kPoll,
  kPrintf,
  kPthreadCondBroadcast,
  kPthreadCondDestroy,
  kPthreadCondInit,
  kPthreadCondSignal,
  kPthreadCondTimedwait,
  kPthreadCondWait,
  kPthreadCreate,
  kPthreadGetschedparam,
  kPthreadMutexDestroy,
  kPthreadMutexInit,
  kPthreadSetschedparam,
  kRead,
  kReaddir,
  kReadlinkat,
  kRecv,
  kRename,
  kRenameat,
  kRmdir,
  kScandir,
  kSchedGetPriorityMax,
  kSchedGetPriorityMin,
  kSelect,
  kSend,
  kSetsockopt,
  kShutdown,
  kSocket,
  kStat,
  kStatfs,
  kStatx,
  kUflow,
  kUnlink,
  kUnlinkat,
  kVsnprintf,
  kWrite,
  kCount
};
constexpr size_t kCalls = static_cast<size_t>(Call::kCount);

// What happens instead of the call.
struct Effect {
  enum Kind : unsigned char {
    kError,    // it fails with `error`
    kEnd,      // the file, the directory or the waiting time is at its end
    kOneByte,  // only one byte is transferred
    kHalf      // only half of the bytes are
  };
  Kind kind;
  int error;
};

struct Fault {
  Call call = Call::kAny;
  int nth = 0;  // 1 is the first; 0 injects nothing
  bool and_all_later = false;
  // For kAny the error is a number: each function fails with the error of that number in
  // its own list, from 0 on, going round.
  Effect effect = {Effect::kError, 0};
};

// A function: the symbol that the library imports, what can become of a call, and the
// symbol of the checking form, which also takes the size of the caller's buffer or a flag
// for the format; null where the library does not call one.
struct Faultable {
  Call call;
  const char* symbol;
  std::span<const Effect> effects;
  const char* checked_symbol = nullptr;
};
const Faultable& faultable(Call call);

// --- The plan. There is one at a time.

void begin_plan(const Fault& fault);
void resume_plan();
void pause_plan();
void end_plan();

// Has `watcher` called before each call of the library, with the number of the call; its
// own calls are not the library's. Null ends that.
void watch_calls(void (*watcher)(int nth));

// How often the function was called, and how often a fault changed its outcome. For kAny
// all but memory count.
int calls(Call call);
int strikes(Call call);

// Writes a fault as text, cut at `size`. Allocates nothing.
void describe(const Fault& fault, char* text, size_t size);

// --- For the interposed functions.

// Counts a call of the library; null when it is to be left alone, and always for other
// callers. `size` is the number of bytes to transfer, for functions that do: a call that
// cannot be cut short is left alone.
const Effect* strike(Call call, size_t size = 0);

// Whether the calling thread is the library's at the moment.
bool is_library();

// Makes a thread one of the library's, which it then stays.
void adopt_thread();

}  // namespace faults

#endif
