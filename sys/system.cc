// System figures, read from the kernel at each call.
//
// SPDX-License-Identifier: MIT

#include <groundwork/sys.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include <pthread.h>
#include <sys/mman.h>
#include <sys/vfs.h>

#include <groundwork/str.h>

#include "core/cancellation.h"
#include "core/check.h"
#include "sys/descriptors.h"

namespace {

constexpr char kSource[] = "g_sys";
constexpr size_t kStackTouched = 65536;
constexpr int kLineSize = 512;  // terminator included; a longer line is read in parts

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

struct FreeVector {
  void operator()(char** vector) const { g_strfreev(vector); }
};
// The fields of a line; null when memory is exhausted.
using Pieces = std::unique_ptr<char*[], FreeVector>;

// Returns whether there is a piece at this index.
bool has_piece(const Pieces& pieces, int index) {
  if (pieces == nullptr) return false;
  for (int i = 0; i <= index; ++i) {
    if (pieces[static_cast<size_t>(i)] == nullptr) return false;
  }
  return true;
}

// Opens for reading, with a descriptor above standard output and standard error.
File open_file(const char* path) {
  File file(std::fopen(path, "re"));
  const bool is_low = file != nullptr && groundwork::is_output(fileno(file.get()));
  return is_low ? open_file(path) : std::move(file);  // `file` still has the low number
}

// Reads the first line of a file for which `is_wanted(line)` is true; false if there is
// none.
template <typename Predicate>
bool read_line(const char* path, char (&line)[kLineSize], Predicate is_wanted) {
  // Cancelled in here, a thread would leave the file open; and these files never block.
  const groundwork::CancellationHeld held;
  const File file = open_file(path);
  if (file == nullptr) return false;
  while (std::fgets(line, kLineSize, file.get()) != nullptr) {
    if (is_wanted(line)) return true;
  }
  return false;
}

// Like strtol() with a 32-bit long: a number out of range becomes the nearest in range.
int32_t to_long32(const char* text) {
  return static_cast<int32_t>(
      std::clamp<long long>(std::strtoll(text, nullptr, 10), INT32_MIN, INT32_MAX));
}

}  // namespace

extern "C" int g_sys_lock_memory(void) {
  // Touches the stack, so that its pages exist and get locked; volatile, so that they are
  // really written.
  volatile unsigned char stack[kStackTouched];
  for (volatile unsigned char& byte : stack) byte = 1;
  return mlockall(MCL_CURRENT | MCL_FUTURE);
}

extern "C" int g_sys_unlock_memory(void) {
  return munlockall();
}

extern "C" int g_sys_get_filesystem_usage(const char* path, uint32_t* total_kb,
                                          uint32_t* avail_kb) {
  CHECK_ARG(path, -1);
  struct statfs status;
  if (statfs(path, &status) != 0) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "%s - %s", std::strerror(errno), path);
    return -1;
  }
  // Kept: a full filesystem is reported as a failure.
  const auto signed_size = static_cast<long>(status.f_bsize);  // unsigned in musl
  if (status.f_blocks == 0 || signed_size <= 0 || status.f_bavail == 0) return -1;

  const auto block_size = static_cast<uint64_t>(status.f_bsize);
  const auto kibibytes = [block_size](uint64_t blocks) {
    return static_cast<uint32_t>((blocks * block_size) >> 10);
  };
  if (total_kb != nullptr) *total_kb = kibibytes(status.f_blocks);
  if (avail_kb != nullptr) *avail_kb = kibibytes(status.f_bavail);
  return 0;
}

extern "C" int g_sys_cpu_load(int cpu) {
  char key[sizeof "cpu-2147483648"];
  std::snprintf(key, sizeof key, "cpu%d", cpu);
  char line[kLineSize];
  // Kept: the key may be anywhere in the line, so "cpu1" also finds "cpu10" if that is
  // first.
  const auto has_key = [&key](const char* text) {
    return std::strstr(text, key) != nullptr;
  };
  if (!read_line("/proc/stat", line, has_key)) return -1;
  const Pieces fields(g_strsplit(g_strchomp(g_strchug(line)), " ", 0));
  if (!has_piece(fields, 4)) return -1;

  // Kept: the sum has 32 bits and wraps; only the idle time is read in 64 bits.
  const uint64_t idle = std::strtoull(fields[4], nullptr, 10);
  uint32_t sum = 0;  // of user, nice, system and idle
  for (size_t field = 1; field <= 4; ++field) {
    sum += static_cast<uint32_t>(to_long32(fields[field]));
  }
  if (sum == 0) return -1;
  // The signed sum, widened to the unsigned 64 bits that the division is done in.
  const auto total = static_cast<uint64_t>(int64_t{static_cast<int32_t>(sum)});
  return static_cast<int>(100 - idle * 100 / total);
}

extern "C" int g_sys_mem_use(void) {
  char line[kLineSize];
  // In the older format of the file the second line has the figures.
  int number = 0;
  const auto is_second = [&number](const char*) { return ++number == 2; };
  if (!read_line("/proc/meminfo", line, is_second)) return -1;
  const Pieces pieces(g_strsplit(line, ":", 0));
  if (!has_piece(pieces, 1)) return -1;

  char* rest = nullptr;
  const uint64_t total = std::strtoull(pieces[1], &rest, 10);
  const uint64_t used = std::strtoull(rest, nullptr, 10);
  if (total == 0) return -1;
  // Kept: the share that is not used, despite the name. The newer format has only one
  // number there, which gives 100.
  return static_cast<int>((total - used) * 100 / total);
}
