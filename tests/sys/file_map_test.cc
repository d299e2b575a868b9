// SPDX-License-Identifier: MIT

#include <groundwork/file.h>
#include <groundwork/file_map.h>
#include <groundwork/log.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "support/descriptors.h"
#include "support/log_capture.h"
#include "support/temporary_directory.h"

using test::AllocationFaults;
using test::check_line;
using test::LogCapture;
using test::lowest_free_descriptor;
using test::TemporaryDirectory;
using test::warning_line;
using Lines = std::vector<std::string>;

namespace {

// The last call of msync().
struct Sync {
  void* addr;
  size_t size;
  int flags;
  int calls;
};
Sync sync_call;
int sync_result = 0;

}  // namespace

// The library's call comes here: the test program's names go before the C library's.
extern "C" int msync(void* addr, size_t size, int flags) {
  sync_call = {addr, size, flags, sync_call.calls + 1};
  if (sync_result != 0) errno = EIO;
  return sync_result;
}

namespace {

const int64_t kPage = g_file_map_page_size();

// Whether the byte can be read; asks the kernel, so that no signal is raised.
bool is_mapped(const void* address) {
  int ends[2];
  if (pipe(ends) != 0) return false;
  const bool readable = write(ends[1], address, 1) == 1;
  close(ends[0]);
  close(ends[1]);
  return readable;
}

char* at(void* addr, int64_t offset) {
  return static_cast<char*>(addr) + offset;
}

// Three pages: "a...", "b...", "c...".
class FileMap : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto page = static_cast<size_t>(kPage);
    path_ = dir_.write(
        "f", std::string(page, 'a') + std::string(page, 'b') + std::string(page, 'c'));
  }
  // What the library leaves mapped.
  static void unmap_rest(void* addr, int pages) {
    if (pages > 1) munmap(at(addr, kPage), static_cast<size_t>((pages - 1) * kPage));
  }
  TemporaryDirectory dir_;
  std::string path_;
};

TEST_F(FileMap, NullArgumentsReportTheirChecks) {
  LogCapture log;
  EXPECT_EQ(g_file_map(nullptr, 0, kPage, 0, nullptr), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "filename != NULL")});
  EXPECT_EQ(g_file_remap(nullptr, nullptr, 0, kPage, 0, nullptr), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "file != NULL")});
  g_file_unmap(nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "map != NULL")});
  int64_t length = 7;
  EXPECT_EQ(g_file_map_get_addr(nullptr, &length), nullptr);
  EXPECT_EQ(length, 7);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "map != NULL")});
}

TEST_F(FileMap, MapsTheRegionForReading) {
  LogCapture log;
  void* addr = nullptr;
  GFileMap* const map = g_file_map(path_.c_str(), kPage, kPage, 0, &addr);
  ASSERT_NE(map, nullptr);
  ASSERT_NE(addr, nullptr);
  EXPECT_EQ(*at(addr, 0), 'b');
  EXPECT_EQ(*at(addr, kPage - 1), 'b');
  int64_t length = 0;
  EXPECT_EQ(g_file_map_get_addr(map, &length), addr);
  EXPECT_EQ(length, kPage);
  EXPECT_EQ(g_file_map_get_addr(map, nullptr), addr);
  g_file_unmap(map);
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(FileMap, IsSharedWithTheFile) {
  void* addr = nullptr;
  GFileMap* const map = g_file_map(path_.c_str(), 0, kPage, 0, &addr);
  ASSERT_NE(map, nullptr);
  ASSERT_EQ(g_file_write_buf(path_.c_str(), "new", 3), 0);
  EXPECT_EQ(std::string(at(addr, 0), 4), "newa");
  g_file_unmap(map);
}

TEST_F(FileMap, AddressMayBeNull) {
  GFileMap* const map = g_file_map(path_.c_str(), 0, kPage, 0, nullptr);
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(*at(g_file_map_get_addr(map, nullptr), 0), 'a');
  g_file_unmap(map);
}

TEST_F(FileMap, RecordIsZeroFilledWithItsFieldsInOrder) {
  void* addr = nullptr;
  AllocationFaults faults(0);
  GFileMap* const map = g_file_map(path_.c_str(), kPage, kPage, 0, &addr);
  faults.disarm();
  ASSERT_NE(map, nullptr);
  struct Record {
    GFile* file;
    void* addr;
    int64_t offset;
    int64_t length;
    int borrowed;
  } record;
  EXPECT_EQ(test::allocation_size(2), sizeof record);
  std::memcpy(&record, static_cast<void*>(map), sizeof record);
  EXPECT_NE(record.file, nullptr);
  EXPECT_EQ(record.addr, addr);
  EXPECT_EQ(record.offset, kPage);
  EXPECT_EQ(record.length, kPage);
  EXPECT_EQ(record.borrowed, 0);
  g_file_unmap(map);
}

TEST_F(FileMap, AMissingFileIsReportedTwice) {
  const std::string missing = dir_ / "missing";
  LogCapture log;
  void* addr = this;
  EXPECT_EQ(g_file_map(missing.c_str(), 0, kPage, 0, &addr), nullptr);
  EXPECT_EQ(addr, this);
  const Lines expected{
      warning_line("g_file",
                   "can't open file '" + missing + "' - No such file or directory"),
      warning_line("g_file", "can't open '" + missing + "' for file map.")};
  EXPECT_EQ(log.take(), expected);
  EXPECT_EQ(g_file_map(missing.c_str(), 0, kPage, 1, &addr), nullptr);  // creates nothing
  EXPECT_EQ(log.take(), expected);
}

TEST_F(FileMap, EveryModeButZeroIsRefusedAsTheFileIsOpenedWriteOnly) {
  const int expected = lowest_free_descriptor();
  LogCapture log;
  for (const int mode : {1, 2, 3, -1}) {
    AllocationFaults faults(0);
    EXPECT_EQ(g_file_map(path_.c_str(), 0, kPage, mode, nullptr), nullptr);
    faults.disarm();
    EXPECT_EQ(log.take(),
              Lines{warning_line("g_file", "can't map file - Permission denied")});
    EXPECT_EQ(lowest_free_descriptor(), expected);
  }
  EXPECT_EQ(g_file_size(path_.c_str()), 3 * kPage);
}

TEST_F(FileMap, AFileThatCannotBeWrittenIsOpenedForModeZeroOnly) {
  const std::string directory = dir_.path();
  LogCapture log;
  for (const int mode : {1, 2, -1}) {
    EXPECT_EQ(g_file_map(directory.c_str(), 0, kPage, mode, nullptr), nullptr);
    EXPECT_EQ(
        log.take(),
        (Lines{
            warning_line("g_file", "can't open file '" + directory + "' - Is a directory"),
            warning_line("g_file", "can't open '" + directory + "' for file map.")}));
  }
  EXPECT_EQ(g_file_map(directory.c_str(), 0, kPage, 0, nullptr), nullptr);
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "can't map file - No such device")});
}

TEST_F(FileMap, ARefusedRegionIsReportedAndClosesTheFile) {
  const int expected = lowest_free_descriptor();
  LogCapture log;
  EXPECT_EQ(g_file_map(path_.c_str(), 1, kPage, 0, nullptr), nullptr);  // not aligned
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "can't map file - Invalid argument")});
  EXPECT_EQ(lowest_free_descriptor(), expected);
}

TEST_F(FileMap, MapsTheLowHalfOfTheLengthAndKeepsAllOfIt) {
  LogCapture log;
  const int64_t asked = (int64_t{1} << 32) + kPage;
  GFileMap* const map = g_file_map(path_.c_str(), 0, asked, 0, nullptr);
  ASSERT_NE(map, nullptr);
  int64_t length = 0;
  EXPECT_EQ(*at(g_file_map_get_addr(map, &length), 0), 'a');
  EXPECT_EQ(length, asked);
  g_file_unmap(map);
  EXPECT_EQ(log.take(), Lines{});
  EXPECT_EQ(g_file_map(path_.c_str(), 0, int64_t{1} << 32, 0, nullptr), nullptr);
  EXPECT_EQ(log.take(), Lines{warning_line("g_file", "can't map file - Invalid argument")});
}

TEST_F(FileMap, AnEmptyRegionAtTheStartIsNoMapping) {
  const int expected = lowest_free_descriptor();
  LogCapture log;
  void* addr = this;
  GFileMap* const map = g_file_map(path_.c_str(), 0, 0, 0, &addr);
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(addr, this);
  EXPECT_EQ(g_file_map_get_addr(map, nullptr), nullptr);
  g_file_unmap(map);
  EXPECT_EQ(lowest_free_descriptor(), expected);
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(FileMap, OffsetsAreSixtyFourBits) {
  const int64_t offset = int64_t{5} << 30;
  {
    GFile* const file = g_file_open(path_.c_str(), 1);
    ASSERT_EQ(g_file_seek(file, offset, SEEK_SET), offset);
    ASSERT_EQ(g_file_write(file, "far", 3), 3);
    g_file_close(file);
  }
  const int descriptor = open64(path_.c_str(), O_RDONLY);
  void* const direct = mmap64(nullptr, 3, PROT_READ, MAP_SHARED, descriptor, offset);
  close(descriptor);
  ASSERT_NE(direct, MAP_FAILED);
  const bool cut = std::string(at(direct, 0), 3) != "far";
  munmap(direct, 3);
  if (cut) GTEST_SKIP() << "this emulator itself cuts the offset of a mapping to 32 bits";
  void* addr = nullptr;
  GFileMap* const map = g_file_map(path_.c_str(), offset, 3, 0, &addr);
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(std::string(at(addr, 0), 3), "far");
  g_file_unmap(map);
}

TEST_F(FileMap, UnmapReleasesTheFirstPageOnlyWhateverTheLength) {
  LogCapture log;
  void* addr = nullptr;
  GFileMap* const map = g_file_map(path_.c_str(), 0, 3 * kPage, 0, &addr);
  ASSERT_NE(map, nullptr);
  ASSERT_TRUE(is_mapped(at(addr, 2 * kPage)));
  g_file_unmap(map);
  EXPECT_FALSE(is_mapped(addr));
  EXPECT_TRUE(is_mapped(at(addr, kPage)));
  EXPECT_TRUE(is_mapped(at(addr, 2 * kPage)));
  unmap_rest(addr, 3);
  EXPECT_EQ(log.take(), Lines{});
}

TEST_F(FileMap, DescriptorZeroUnmapsNothingAndIsReported) {
  const pid_t child = fork();
  if (child == 0) {
    LogCapture log;
    close(0);
    void* addr = nullptr;
    GFileMap* const map = g_file_map(path_.c_str(), 0, kPage, 0, &addr);
    const Lines refused{warning_line("g_file", "can't unmap file - Invalid argument")};
    if (map == nullptr || log.take() != refused) _exit(1);
    g_file_unmap(map);
    if (log.take() != refused) _exit(2);
    if (!is_mapped(addr)) _exit(3);
    _exit(fcntl(0, F_GETFD) == -1 ? 0 : 4);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(FileMap, UnmapClosesAnOwnedFileAndFreesEverything) {
  const int expected = lowest_free_descriptor();
  AllocationFaults faults(0);
  g_file_unmap(g_file_map(path_.c_str(), 0, kPage, 0, nullptr));
  faults.disarm();
  EXPECT_EQ(faults.outstanding(), 0);
  EXPECT_EQ(lowest_free_descriptor(), expected);
}

TEST_F(FileMap, SurvivesAnExhaustedHeap) {
  const int expected = lowest_free_descriptor();
  {
    LogCapture log;
    AllocationFaults faults(2);
    EXPECT_EQ(g_file_map(path_.c_str(), 0, kPage, 0, nullptr), nullptr);
    faults.disarm();
    EXPECT_EQ(log.take(),
              Lines{warning_line("g_file", "failed to allocate " +
                                               std::to_string(test::allocation_size(2)) +
                                               " bytes.")});
  }
  const LogCapture quiet(G_LOG_SILENT);
  test::for_each_failed_allocation([&](AllocationFaults& faults) {
    GFileMap* const map = g_file_map(path_.c_str(), 0, kPage, 0, nullptr);
    faults.disarm();
    EXPECT_EQ(map == nullptr, faults.failures() != 0);
    if (map != nullptr) g_file_unmap(map);
    EXPECT_EQ(lowest_free_descriptor(), expected);
  });
}

class FileRemap : public FileMap {
 protected:
  void SetUp() override {
    FileMap::SetUp();
    file_ = g_file_open(path_.c_str(), 0);
    ASSERT_NE(file_, nullptr);
  }
  void TearDown() override {
    if (file_ != nullptr) g_file_close(file_);
  }
  bool is_open() const { return g_file_seek(file_, 0, SEEK_CUR) == 0; }
  GFile* file_ = nullptr;
};

TEST_F(FileRemap, ANewMapBorrowsTheFile) {
  void* addr = nullptr;
  GFileMap* const map = g_file_remap(nullptr, file_, kPage, kPage, 0, &addr);
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(*at(addr, 0), 'b');
  g_file_unmap(map);
  EXPECT_TRUE(is_open());
}

TEST_F(FileRemap, TheSameRegionAgainChangesNothing) {
  void* addr = nullptr;
  GFileMap* const map = g_file_remap(nullptr, file_, 0, kPage, 0, &addr);
  ASSERT_NE(map, nullptr);
  LogCapture log;
  void* untouched = this;
  // The mode is not looked at: memory to write would be refused.
  EXPECT_EQ(g_file_remap(map, file_, 0, kPage, 2, &untouched), map);
  EXPECT_EQ(untouched, this);
  EXPECT_EQ(g_file_map_get_addr(map, nullptr), addr);
  EXPECT_TRUE(is_mapped(addr));
  EXPECT_EQ(log.take(), Lines{});
  g_file_unmap(map);
}

TEST_F(FileRemap, TheSameRegionLeavesTheOwnershipOfTheFile) {
  const int expected = lowest_free_descriptor();
  GFileMap* const map = g_file_map(path_.c_str(), 0, kPage, 0, nullptr);
  ASSERT_NE(map, nullptr);
  EXPECT_EQ(g_file_remap(map, file_, 0, kPage, 0, nullptr), map);
  g_file_unmap(map);
  EXPECT_EQ(lowest_free_descriptor(), expected);
}

TEST_F(FileRemap, AllSixtyFourBitsOfARegionAreCompared) {
  GFileMap* const map = g_file_remap(nullptr, file_, 0, kPage, 0, nullptr);
  ASSERT_NE(map, nullptr);
  void* addr = nullptr;
  const int64_t same_low_half = (int64_t{1} << 32) + kPage;
  ASSERT_EQ(g_file_remap(map, file_, 0, same_low_half, 0, &addr), map);
  EXPECT_NE(addr, nullptr);
  addr = nullptr;
  ASSERT_EQ(g_file_remap(map, file_, int64_t{1} << 32, same_low_half, 0, &addr), map);
  EXPECT_NE(addr, nullptr);
  g_file_unmap(map);
}

TEST_F(FileRemap, MovesAMapWithinItsOwnFile) {
  const std::string other = dir_.write("other", std::string(64, 'z'));
  GFileMap* map = g_file_remap(nullptr, file_, 0, kPage, 0, nullptr);
  ASSERT_NE(map, nullptr);
  GFile* const ignored = g_file_open(other.c_str(), 0);
  void* addr = nullptr;
  ASSERT_EQ(g_file_remap(map, ignored, 2 * kPage, kPage, 0, &addr), map);
  g_file_close(ignored);
  EXPECT_EQ(*at(addr, 0), 'c');
  EXPECT_EQ(g_file_map_get_addr(map, nullptr), addr);
  g_file_unmap(map);
}

TEST_F(FileRemap, MovingReleasesTheFirstPageOnly) {
  void* before = nullptr;
  GFileMap* const map = g_file_remap(nullptr, file_, 0, 2 * kPage, 0, &before);
  ASSERT_NE(map, nullptr);
  ASSERT_EQ(g_file_remap(map, file_, kPage, kPage, 0, nullptr), map);
  EXPECT_TRUE(is_mapped(at(before, kPage)));
  EXPECT_EQ(*at(before, kPage), 'b');
  g_file_unmap(map);
  unmap_rest(before, 2);
}

TEST_F(FileRemap, AMovedMapNoLongerClosesTheFileThatItOpened) {
  const int descriptor = lowest_free_descriptor();
  GFileMap* const map = g_file_map(path_.c_str(), 0, kPage, 0, nullptr);
  ASSERT_NE(map, nullptr);
  GFile* owned = nullptr;
  std::memcpy(&owned, static_cast<void*>(map), sizeof owned);  // the first field
  ASSERT_EQ(g_file_remap(map, file_, kPage, kPage, 0, nullptr), map);
  g_file_unmap(map);
  EXPECT_NE(fcntl(descriptor, F_GETFD), -1);
  g_file_close(owned);
}

TEST_F(FileRemap, AFailedMoveFreesTheMapButNotTheFile) {
  LogCapture log;
  AllocationFaults faults(0);
  GFileMap* const map = g_file_remap(nullptr, file_, 0, kPage, 0, nullptr);
  void* addr = this;
  GFileMap* const moved = g_file_remap(map, file_, 1, kPage, 0, &addr);
  faults.disarm();
  const Lines lines = log.take();
  EXPECT_NE(map, nullptr);
  EXPECT_EQ(moved, nullptr);
  EXPECT_EQ(addr, this);
  EXPECT_EQ(lines, Lines{warning_line("g_file", "can't map file - Invalid argument")});
  EXPECT_TRUE(is_open());
}

TEST_F(FileRemap, AFailedMoveFreesTheRecord) {
  const LogCapture quiet(G_LOG_SILENT);
  AllocationFaults faults(0);
  GFileMap* const map = g_file_remap(nullptr, file_, 0, kPage, 0, nullptr);
  g_file_remap(map, file_, 1, kPage, 0, nullptr);
  faults.disarm();
  EXPECT_EQ(faults.outstanding(), 0);
}

TEST_F(FileRemap, ANullFileLeavesTheMapAsItIs) {
  GFileMap* const map = g_file_remap(nullptr, file_, 0, kPage, 0, nullptr);
  ASSERT_NE(map, nullptr);
  LogCapture log;
  EXPECT_EQ(g_file_remap(map, nullptr, kPage, kPage, 0, nullptr), nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_file", "file != NULL")});
  EXPECT_EQ(*at(g_file_map_get_addr(map, nullptr), 0), 'a');
  g_file_unmap(map);
}

// A file open for both, which only a handle that the caller made can be.
TEST_F(FileRemap, ModesChooseTheProtection) {
  const int descriptor = open(path_.c_str(), O_RDWR);
  ASSERT_NE(descriptor, -1);
  auto* const file = reinterpret_cast<GFile*>(const_cast<int*>(&descriptor));
  for (const int mode : {1, 2, -1, 77}) {
    void* addr = nullptr;
    GFileMap* const map = g_file_remap(nullptr, file, 0, kPage, mode, &addr);
    ASSERT_NE(map, nullptr);
    *at(addr, 0) = static_cast<char>('0' + mode % 7);
    EXPECT_EQ(test::read_file(path_)[0], '0' + mode % 7);
    g_file_unmap(map);
  }
  close(descriptor);
}

TEST_F(FileMap, PageSizeIsTheSystems) {
  EXPECT_EQ(g_file_map_page_size(), sysconf(_SC_PAGESIZE));
}

TEST_F(FileMap, SyncCoversTheLowHalfOfTheLengthWithoutWaiting) {
  void* addr = nullptr;
  GFileMap* const map = g_file_map(path_.c_str(), 0, (int64_t{3} << 32) + 5, 0, &addr);
  ASSERT_NE(map, nullptr);
  sync_call = {};
  EXPECT_EQ(g_file_map_sync(map), 0);
  EXPECT_EQ(sync_call.calls, 1);
  EXPECT_EQ(sync_call.addr, addr);
  EXPECT_EQ(sync_call.size, 5u);
  EXPECT_EQ(sync_call.flags, MS_ASYNC | MS_INVALIDATE);
  LogCapture log;
  sync_result = -1;
  EXPECT_EQ(g_file_map_sync(map), -1);
  sync_result = 0;
  EXPECT_EQ(log.take(), Lines{});
  g_file_unmap(map);
}

int return_stored_result(const char*, void* result) {
  return *static_cast<int*>(result);
}

TEST_F(FileMap, SyncOfNullReturnsTheResultOfItsReport) {
  {
    LogCapture log;
    EXPECT_EQ(g_file_map_sync(nullptr), 0);
    EXPECT_EQ(log.take(), Lines{check_line("g_file", "map != NULL")});
  }
  int result = 42;
  g_debug_set_handler(return_stored_result, &result);
  EXPECT_EQ(g_file_map_sync(nullptr), 42);
  g_debug_set_handler(nullptr, nullptr);
  LogCapture silent(G_LOG_SILENT);
  EXPECT_EQ(g_file_map_sync(nullptr), 1);  // below the threshold
}

}  // namespace
