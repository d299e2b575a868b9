// SPDX-License-Identifier: MIT

#include <groundwork/sys.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "support/log_capture.h"
#include "support/next_function.h"
#include "support/temporary_directory.h"

using test::AllocationFaults;
using test::check_line;
using test::LogCapture;
using test::TemporaryDirectory;
using test::warning_line;
using Lines = std::vector<std::string>;

// The library's system calls come through the functions below, which return what a test has
// set up.
namespace {

// Opened in place of "/proc/stat" and "/proc/meminfo".
std::optional<std::string> stand_in;
std::vector<std::pair<std::string, std::string>> opened;  // path and mode
bool record_opened = true;

struct Filesystem {
  uint64_t blocks;
  int64_t block_size;
  uint64_t available;
};
std::optional<Filesystem> filesystem;

int lock_flags = 0;
int lock_result = 0;
size_t ones_on_stack = 0;  // in a row, above the frame of mlockall()

std::FILE* open_file(const char* path, const char* mode) {
  const bool asked = std::strncmp(path, "/proc/", 6) == 0;
  if (asked) {
    if (record_opened) opened.emplace_back(path, mode);
    if (stand_in) path = stand_in->c_str();
  }
  const int flags = mode[0] == 'w' ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY;
  const int fd = open(path, flags | O_CLOEXEC, 0644);
  if (fd < 0) return nullptr;
  std::FILE* const file = fdopen(fd, mode);
  if (file == nullptr) close(fd);
  return file;
}

template <typename Status>
int filesystem_status(const char* name, const char* path, Status* status) {
  if (!filesystem)
    return test::next_function<int(const char*, Status*)>(name)(path, status);
  std::memset(status, 0, sizeof *status);
  status->f_blocks = static_cast<decltype(status->f_blocks)>(filesystem->blocks);
  status->f_bsize = static_cast<decltype(status->f_bsize)>(filesystem->block_size);
  status->f_bavail = static_cast<decltype(status->f_bavail)>(filesystem->available);
  status->f_bfree = static_cast<decltype(status->f_bfree)>(filesystem->available + 7);
  return 0;
}

}  // namespace

extern "C" std::FILE* fopen(const char* path, const char* mode) {
  return open_file(path, mode);
}

extern "C" int statfs(const char* path, struct statfs* status) noexcept {
  return filesystem_status("statfs", path, status);
}

#ifdef __GLIBC__  // elsewhere the same functions
extern "C" std::FILE* fopen64(const char* path, const char* mode) {
  return open_file(path, mode);
}

extern "C" int statfs64(const char* path, struct statfs64* status) noexcept {
  return filesystem_status("statfs64", path, status);
}
#endif

extern "C" [[gnu::noinline]] __attribute__((no_sanitize("address"))) int mlockall(
    int flags) noexcept {
  lock_flags = flags;
  ones_on_stack = 0;
  const auto* byte = static_cast<const volatile unsigned char*>(__builtin_frame_address(0));
  size_t run = 0;
  for (int i = 0; i < 70000 && ones_on_stack < 65536; ++i) {
    run = byte[i] == 1 ? run + 1 : 0;
    if (run > ones_on_stack) ones_on_stack = run;
  }
  errno = ENOMEM;
  return lock_result;
}

extern "C" int munlockall() noexcept {
  errno = EPERM;
  return lock_result;
}

namespace {

class SystemTest : public testing::Test {
 protected:
  ~SystemTest() override {
    stand_in.reset();
    filesystem.reset();
    opened.clear();
    lock_result = 0;
  }

  int load_of(const std::string& content, int cpu = 0) {
    stand_in = directory_.write("stat", content);
    return g_sys_cpu_load(cpu);
  }
  int mem_use_of(const std::string& content) {
    stand_in = directory_.write("meminfo", content);
    return g_sys_mem_use();
  }
  void without_file() { stand_in = directory_ / "missing"; }

  TemporaryDirectory directory_;
  LogCapture log_{INT_MIN};
};

// The descriptor that the next open() would give.
int next_descriptor() {
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(fd);
  return fd;
}

// --- memory locking ----------------------------------------------------------------------

TEST_F(SystemTest, LockMemoryWrites64KibibytesOfItsStackAndThenLocksEverything) {
  EXPECT_EQ(g_sys_lock_memory(), 0);
  EXPECT_EQ(lock_flags, MCL_CURRENT | MCL_FUTURE);
  EXPECT_EQ(ones_on_stack, 65536u);
}

TEST_F(SystemTest, LockMemoryPassesTheResultOnWithoutAReport) {
  lock_result = -1;
  EXPECT_EQ(g_sys_lock_memory(), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(g_sys_unlock_memory(), -1);
  EXPECT_EQ(errno, EPERM);
  lock_result = 0;
  EXPECT_EQ(g_sys_unlock_memory(), 0);
  EXPECT_EQ(log_.take(), Lines{});
}

// --- filesystem --------------------------------------------------------------------------

struct Usage {
  int result;
  uint32_t total = 77;
  uint32_t available = 77;
};

Usage usage_of(const Filesystem& given) {
  filesystem = given;
  Usage usage;
  usage.result = g_sys_get_filesystem_usage("/", &usage.total, &usage.available);
  return usage;
}

TEST_F(SystemTest, FilesystemUsageGivesKibibytes) {
  const Usage usage = usage_of({1000, 4096, 250});
  EXPECT_EQ(usage.result, 0);
  EXPECT_EQ(usage.total, 4000u);
  EXPECT_EQ(usage.available, 1000u);
}

TEST_F(SystemTest, FilesystemUsageRoundsDown) {
  const Usage usage = usage_of({3, 512, 1});
  EXPECT_EQ(usage.result, 0);
  EXPECT_EQ(usage.total, 1u);
  EXPECT_EQ(usage.available, 0u);
}

TEST_F(SystemTest, FilesystemUsageGivesTheLowHalfOfItsFigures) {
  // 16 TiB and 64 KiB; 8 TiB and 4 KiB
  const Usage usage = usage_of({(uint64_t{1} << 32) + 16, 4096, (uint64_t{1} << 31) + 1});
  EXPECT_EQ(usage.result, 0);
  EXPECT_EQ(usage.total, 64u);
  EXPECT_EQ(usage.available, 2147483648u * 4 + 4);
}

TEST_F(SystemTest, FilesystemUsageOfAFullFilesystemFailsWithoutAMessage) {
  const Usage usage = usage_of({1000, 4096, 0});
  EXPECT_EQ(usage.result, -1);
  EXPECT_EQ(usage.total, 77u);
  EXPECT_EQ(usage.available, 77u);
  EXPECT_EQ(log_.take(), Lines{});
}

TEST_F(SystemTest, FilesystemUsageWithoutBlocksOrBlockSizeFailsWithoutAMessage) {
  for (const Filesystem& given :
       {Filesystem{0, 4096, 5}, Filesystem{1000, 0, 5}, Filesystem{1000, -4096, 5}}) {
    const Usage usage = usage_of(given);
    EXPECT_EQ(usage.result, -1);
    EXPECT_EQ(usage.total, 77u);
    EXPECT_EQ(usage.available, 77u);
  }
  EXPECT_EQ(log_.take(), Lines{});
}

TEST_F(SystemTest, FilesystemUsageStoresOnlyWhatIsAskedFor) {
  filesystem = Filesystem{1000, 1024, 250};
  uint32_t figure = 0;
  EXPECT_EQ(g_sys_get_filesystem_usage("/", &figure, nullptr), 0);
  EXPECT_EQ(figure, 1000u);
  EXPECT_EQ(g_sys_get_filesystem_usage("/", nullptr, &figure), 0);
  EXPECT_EQ(figure, 250u);
  EXPECT_EQ(g_sys_get_filesystem_usage("/", nullptr, nullptr), 0);
}

TEST_F(SystemTest, FilesystemUsageOfAMissingPathLogsTheErrorAndThePath) {
  uint32_t total = 77;
  EXPECT_EQ(g_sys_get_filesystem_usage("/nonexistent", &total, nullptr), -1);
  EXPECT_EQ(total, 77u);
  EXPECT_EQ(log_.take(),
            Lines{warning_line("g_sys", "No such file or directory - /nonexistent")});
}

TEST_F(SystemTest, FilesystemUsageWithoutAPathReportsTheCheck) {
  uint32_t total = 77;
  EXPECT_EQ(g_sys_get_filesystem_usage(nullptr, &total, &total), -1);
  EXPECT_EQ(total, 77u);
  EXPECT_EQ(log_.take(), Lines{check_line("g_sys", "path")});
}

TEST_F(SystemTest, FilesystemUsageOfTheRealRootIsWhatTheSystemSays) {
  struct statfs64 status;
  ASSERT_EQ(statfs64("/", &status), 0);
  if (status.f_blocks == 0 || status.f_bavail == 0) GTEST_SKIP() << "an unusual root";
  uint32_t total = 0;
  EXPECT_EQ(g_sys_get_filesystem_usage("/", &total, nullptr), 0);
  EXPECT_EQ(total, static_cast<uint32_t>(
                       status.f_blocks * static_cast<uint64_t>(status.f_bsize) >> 10));
}

// --- processor ---------------------------------------------------------------------------

TEST_F(SystemTest, CpuLoadIsTheShareThatIsNotIdle) {
  EXPECT_EQ(load_of("cpu0 100 0 100 800 0 0 0\n"), 20);
  EXPECT_EQ(load_of("cpu0 10 20 30 40\n"), 60);
  EXPECT_EQ(load_of("cpu0 100 0 0 0\n"), 100);
  EXPECT_EQ(load_of("cpu0 0 0 0 100\n"), 0);
  EXPECT_EQ(load_of("cpu0 1 0 0 2\n"), 34);  // 100 - 66.67 cut
  EXPECT_EQ(load_of("cpu0 100 0 100 800"), 20);
  EXPECT_EQ(log_.take(), Lines{});
}

TEST_F(SystemTest, CpuLoadReadsTheProcessFileOfTheKernelForReading) {
  load_of("cpu0 100 0 100 800\n");
  EXPECT_EQ(opened,
            (std::vector<std::pair<std::string, std::string>>{{"/proc/stat", "re"}}));
}

TEST_F(SystemTest, CpuLoadTakesTheLineOfItsProcessor) {
  const std::string content =
      "cpu  1000 0 1000 8000\ncpu0 100 0 100 800\ncpu1 500 0 0 500\nintr 5 cpu2\n";
  EXPECT_EQ(load_of(content, 0), 20);
  EXPECT_EQ(load_of(content, 1), 50);
  EXPECT_EQ(load_of(content, 3), -1);
  EXPECT_EQ(load_of(content, -1), -1);
  EXPECT_EQ(load_of(content, INT_MIN), -1);
  EXPECT_EQ(load_of(content, INT_MAX), -1);
}

TEST_F(SystemTest, CpuLoadTakesTheFirstLineWithItsKeyAnywhere) {
  EXPECT_EQ(load_of("cpu10 100 0 100 800\n", 1), 20);
  EXPECT_EQ(load_of("cpu10 100 0 100 800\ncpu1 500 0 0 500\n", 1), 20);
  EXPECT_EQ(load_of("the cpu0 3 6 9\ncpu0 100 0 100 800\n"), 50);
}

TEST_F(SystemTest, CpuLoadTrimsTheLineAndSplitsItOnSingleSpaces) {
  EXPECT_EQ(load_of(" \t cpu0 100 0 100 800 \t\n"), 20);
  // The empty field between two spaces counts: 0, 100, 0, 100.
  EXPECT_EQ(load_of("cpu0  100 0 100 800\n"), 50);
}

TEST_F(SystemTest, CpuLoadOfALineWithoutAllFieldsFails) {
  EXPECT_EQ(load_of("cpu0 100 0 100\n"), -1);
  EXPECT_EQ(load_of("cpu0 100 0 100 \n"), -1);
  EXPECT_EQ(load_of("cpu0\n"), -1);
  EXPECT_EQ(load_of("cpu0"), -1);
}

TEST_F(SystemTest, CpuLoadOfNothingCountedFails) {
  EXPECT_EQ(load_of("cpu0 0 0 0 0\n"), -1);
  EXPECT_EQ(load_of("cpu0 a b c d\n"), -1);
  // A sum of 2^32 is 0 in 32 bits.
  EXPECT_EQ(load_of("cpu0 2147483647 2147483647 2 0\n"), -1);
}

TEST_F(SystemTest, CpuLoadAddsIn32Bits) {
  EXPECT_EQ(load_of("cpu0 2147483647 2147483647 3 1\n"), 50);  // a sum of 2
  // A negative sum is beyond every idle time.
  EXPECT_EQ(load_of("cpu0 2147483647 0 0 1000000000\n"), 100);
}

TEST_F(SystemTest, CpuLoadCutsEachCounterTo32BitsButNotTheIdleTime) {
  EXPECT_EQ(load_of("cpu0 4294967296 0 0 0\n"), 100);
  EXPECT_EQ(load_of("cpu0 99999999999999999999 0 0 0\n"), 100);
  EXPECT_EQ(load_of("cpu0 -99999999999999999999 0 0 0\n"), 100);  // -2^31
  EXPECT_EQ(load_of("cpu0 -1000 1000 100 100\n"), 50);
  EXPECT_EQ(load_of("cpu0 0 0 0 4294967294\n"), 100 - 200);
  const uint64_t product = UINT64_MAX * 100;
  EXPECT_EQ(load_of("cpu0 0 0 0 18446744073709551615\n"),
            static_cast<int>(100 - product / INT32_MAX));
}

TEST_F(SystemTest, CpuLoadReadsLongLinesInParts) {
  EXPECT_EQ(load_of(std::string(511, 'x') + "cpu0 100 0 100 800\n"), 20);
  EXPECT_EQ(load_of(std::string(509, 'x') + "cpu0 100 0 100 800\n"), -1);  // key cut in two
  EXPECT_EQ(load_of("intr " + std::string(5000, '1') + "\ncpu0 100 0 100 800\n"), 20);
  // Cut within the fourth field: "8" remains of 800.
  const std::string head = std::string(511 - sizeof "cpu0 1 0 1 8" + 1, ' ');
  EXPECT_EQ(load_of(head + "cpu0 1 0 1 800\n"), 20);
}

TEST_F(SystemTest, CpuLoadWithoutTheFileFailsWithoutAMessage) {
  without_file();
  EXPECT_EQ(g_sys_cpu_load(0), -1);
  EXPECT_EQ(load_of(""), -1);
  EXPECT_EQ(log_.take(), Lines{});
}

TEST_F(SystemTest, CpuLoadOfTheRealSystemIsAtMostAHundred) {
  EXPECT_LE(g_sys_cpu_load(0), 100);
  EXPECT_EQ(g_sys_cpu_load(100000), -1);
}

// --- memory ------------------------------------------------------------------------------

TEST_F(SystemTest, MemUseIsTheShareThatIsNotUsed) {
  const std::string header =
      "        total:    used:    free:  shared: buffers:  cached:\n";
  EXPECT_EQ(mem_use_of(header + "Mem:  1000 250 750 0 0 0\nSwap: 1 1 1\n"), 75);
  EXPECT_EQ(mem_use_of(header + "Mem:  1000 1000 0 0 0 0\n"), 0);
  EXPECT_EQ(mem_use_of(header + "Mem:  3 1 2\n"), 66);
  EXPECT_EQ(mem_use_of(header + "Mem:  1000 250"), 75);
  EXPECT_EQ(log_.take(), Lines{});
}

TEST_F(SystemTest, MemUseOfTheNewerFormIsAlwaysAHundred) {
  EXPECT_EQ(mem_use_of("MemTotal:  1000 kB\nMemFree:    250 kB\n"), 100);
  EXPECT_EQ(mem_use_of("\nMemFree:    250 kB 100\n"),
            100);  // nothing directly after the first
}

TEST_F(SystemTest, MemUseReadsTheMemoryFileOfTheKernelForReading) {
  mem_use_of("\nMem: 1000 250\n");
  EXPECT_EQ(opened,
            (std::vector<std::pair<std::string, std::string>>{{"/proc/meminfo", "re"}}));
}

TEST_F(SystemTest, MemUseWithoutASecondLineFails) {
  EXPECT_EQ(mem_use_of(""), -1);
  EXPECT_EQ(mem_use_of("Mem: 1000 250\n"), -1);
  without_file();
  EXPECT_EQ(g_sys_mem_use(), -1);
  EXPECT_EQ(log_.take(), Lines{});
}

TEST_F(SystemTest, MemUseWithoutATotalFails) {
  EXPECT_EQ(mem_use_of("\n\n"), -1);
  EXPECT_EQ(mem_use_of("\nno colon 1000 250\n"), -1);
  EXPECT_EQ(mem_use_of("\nMem:\n"), -1);
  EXPECT_EQ(mem_use_of("\nMem: 0 0\n"), -1);
  EXPECT_EQ(mem_use_of("\nMem: kB: 1000 250\n"), -1);  // up to the next colon only
}

TEST_F(SystemTest, MemUseReadsALongFirstLineInParts) {
  EXPECT_EQ(mem_use_of(std::string(511, 'x') + "Mem: 1000 250\nMem: 1000 500\n"), 75);
  EXPECT_EQ(mem_use_of(std::string(510, 'x') + "\nMem: 1000 250\n"), 75);
}

TEST_F(SystemTest, MemUseCountsIn64Bits) {
  EXPECT_EQ(mem_use_of("\nMem: 100000000000000000 50000000000000000\n"), 50);
  EXPECT_EQ(mem_use_of("\nMem: 18446744073709551615 0\n"), 0);  // the product wraps
  const uint64_t product = (uint64_t{100} - 101) * 100;
  EXPECT_EQ(mem_use_of("\nMem: 100 101\n"), static_cast<int>(product / 100));
}

TEST_F(SystemTest, MemUseOfTheRealSystemSucceeds) {
  const int use = g_sys_mem_use();
  EXPECT_GE(use, -1);
  EXPECT_LE(use, 100);
}

// --- resources ---------------------------------------------------------------------------

TEST_F(SystemTest, NoFileStaysOpenAndNoMemoryIsLeft) {
  const int descriptor = next_descriptor();
  record_opened = false;
  for (const char* content : {"", "cpu0\n", "cpu0 1 2 3 4\n", "\nMem: 1 1\n", "\nMem\n"}) {
    stand_in = directory_.write("file", content);
    AllocationFaults faults(0);
    const int load = g_sys_cpu_load(0);
    const int use = g_sys_mem_use();
    faults.disarm();
    EXPECT_EQ(faults.outstanding(), 0) << load << use;
  }
  record_opened = true;
  EXPECT_EQ(next_descriptor(), descriptor);
}

void* call_when_cancelled(void* arg) {
  pthread_cancel(pthread_self());
  static_cast<int*>(arg)[0] = g_sys_cpu_load(0);
  static_cast<int*>(arg)[1] = g_sys_mem_use();
  pthread_testcancel();
  static_cast<int*>(arg)[0] = -2;
  return nullptr;
}

TEST_F(SystemTest, ACancelledThreadFinishesItsCall) {
  stand_in = directory_.write("file", "cpu0 100 0 100 800\nMem: 1000 250\n");
  int results[2] = {0, 0};
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, nullptr, call_when_cancelled, results), 0);
  pthread_join(thread, nullptr);
  EXPECT_EQ(results[0], 20);
  EXPECT_EQ(results[1], 75);
}

TEST_F(SystemTest, ExhaustedHeapFailsAndLeaksNothing) {
  stand_in = directory_.write("file", "cpu0 100 0 100 800\nMem: 1000 250\n");
  const int descriptor = next_descriptor();
  record_opened = false;
  test::for_each_failed_allocation([](AllocationFaults& faults) {
    const int load = g_sys_cpu_load(0);
    const int use = g_sys_mem_use();
    faults.disarm();
    // Standard input and output work without a buffer.
    EXPECT_TRUE(load == 20 || (load == -1 && faults.failures() != 0)) << load;
    EXPECT_TRUE(use == 75 || (use == -1 && faults.failures() != 0)) << use;
  });
  record_opened = true;
  EXPECT_EQ(next_descriptor(), descriptor);
  EXPECT_EQ(log_.take(), Lines{});
}

}  // namespace
