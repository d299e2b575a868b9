// Files, maps, directories, figures of the system.
//
// SPDX-License-Identifier: MIT

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include <groundwork/groundwork.h>

#include "faults/sweep.h"
#include "faults/working_directory.h"

using namespace faults;
using test::read_file;

// The form of g_scandir() for programs with 64-bit times.
extern "C" int g_scandir_time64(const char* path, GScandirFunc func, void* data);

namespace {

// The outcome of moving `size` bytes.
int64_t transferred(const Pass& pass, bool is_struck, int64_t size) {
  if (!is_struck) return size;
  switch (pass.kind()) {
    case Effect::kError:
      return -1;
    case Effect::kEnd:
      return 0;
    case Effect::kOneByte:
      return 1;
    case Effect::kHalf:
      return size / 2;
  }
  return size;
}

// Null exactly when there was no memory or the file could not be opened, which is reported.
GFile* open_file(Pass& pass, const char* path, int mode) {
  const Since since(pass);
  const int reports = pass.reports();
  GFile* const file = faulty(pass, [&] { return g_file_open(path, mode); });
  const bool is_refused = since.struck(Call::kOpen, Call::kAllocation);
  EXPECT_EQ(file == nullptr, is_refused);
  EXPECT_EQ(pass.reports(), reports + (is_refused ? 1 : 0));
  return file;
}

void close_file(Pass& pass, GFile* file) {
  faulty(pass, [&] {
    g_file_close(file);
    return 0;
  });
}

// --- Handles.

void read_handle(Pass& pass) {
  const WorkingDirectory directory;
  directory.write("file", "0123456789abcdef");
  GFile* const file = open_file(pass, "file", 0);
  if (file == nullptr) return;
  char buffer[8] = {};
  int64_t position = 0;
  for (int i = 0; i < 2; ++i) {
    const Since since(pass);
    const int64_t count = faulty(pass, [&] { return g_file_read(file, buffer, 8); });
    EXPECT_EQ(count, transferred(pass, since.struck(Call::kRead), 8));
    if (count > 0) {
      EXPECT_EQ(
          std::memcmp(buffer, &"0123456789abcdef"[position], static_cast<size_t>(count)),
          0);
      position += count;
    }
    const int64_t offset = faulty(pass, [&] { return g_file_seek(file, 0, SEEK_CUR); });
    EXPECT_EQ(offset, since.struck(Call::kLseek) ? -1 : position);
  }
  close_file(pass, file);
}

void write_handle(Pass& pass) {
  const WorkingDirectory directory;
  directory.write("file", "0123456789");
  GFile* const file = open_file(pass, "file", 1);
  if (file == nullptr) return;
  std::string expected = "0123456789";
  const Since writing(pass);
  const int reports = pass.reports();
  const int64_t count = faulty(pass, [&] { return g_file_write(file, "abcd", 4); });
  EXPECT_EQ(count, transferred(pass, writing.struck(Call::kWrite), 4));
  EXPECT_EQ(pass.reports(), reports + (count == -1 ? 1 : 0));
  if (count > 0)
    expected.replace(0, static_cast<size_t>(count), "abcd", static_cast<size_t>(count));
  EXPECT_EQ(read_file("file"), expected);

  const Since cutting(pass);
  const int cut = faulty(pass, [&] { return g_file_truncate(file); });
  EXPECT_EQ(cut, cutting.struck(Call::kLseek, Call::kFtruncate) ? -1 : 0);
  if (cut == 0) expected.resize(static_cast<size_t>(std::max<int64_t>(count, 0)));
  EXPECT_EQ(read_file("file"), expected);
  close_file(pass, file);
  EXPECT_EQ(read_file("file"), expected);
}

void create_handle(Pass& pass) {
  const WorkingDirectory directory;
  directory.write("file", "0123456789");
  GFile* const file = open_file(pass, "file", 2);
  EXPECT_EQ(read_file("file"), file == nullptr ? "0123456789" : "");
  if (file != nullptr) close_file(pass, file);
}

void lock_handle(Pass& pass) {
  const WorkingDirectory directory;
  directory.write("file", "x");
  for (int (*const lock)(GFile*) : {g_file_lock_read, g_file_lock_write}) {
    GFile* const file = open_file(pass, "file", lock == g_file_lock_read ? 0 : 1);
    if (file == nullptr) continue;
    const int reports = pass.reports();
    for (int (*const step)(GFile*) : {lock, g_file_unlock}) {
      const Since since(pass);
      const int result = faulty(pass, [&] { return step(file); });
      EXPECT_EQ(result, since.struck(Call::kFcntl) ? -1 : 0);
    }
    EXPECT_EQ(pass.reports(), reports);
    close_file(pass, file);
  }
}

// --- Whole files.

void look_at_file(Pass& pass) {
  const WorkingDirectory directory;
  directory.write("file", "12345");
  const int64_t size = faulty(pass, [] { return g_file_size("file"); });
  EXPECT_EQ(size, pass.struck(Call::kStat) ? -1 : 5);
  const Since looking(pass);
  const int exists = faulty(pass, [] { return g_file_exist("file"); });
  EXPECT_EQ(exists, looking.struck(Call::kStat) ? 0 : 1);
  const Since joining(pass);
  char* const path = faulty(pass, [] { return g_file_exist_path(".", "file"); });
  EXPECT_EQ(path == nullptr, joining.struck(Call::kStat, Call::kAllocation));
  if (path != nullptr) {
    EXPECT_STREQ(path, "./file");
  }
  std::free(path);
}

void read_whole(Pass& pass) {
  const WorkingDirectory directory;
  directory.write("file", "0123456789");
  int64_t length = -7;
  char* const text = faulty(pass, [&] { return g_file_read_buf("file", &length); });
  EXPECT_EQ(text == nullptr,
            pass.struck(Call::kStat, Call::kOpen, Call::kAllocation, Call::kRead) != 0);
  EXPECT_EQ(length, text == nullptr ? -7 : 10);
  if (text != nullptr) {
    EXPECT_STREQ(text, "0123456789");
  } else if (pass.struck(Call::kStat) == 0) {
    EXPECT_EQ(pass.reports(), 1);  // a file whose size is unknown gives null, silently
  }
  std::free(text);
}

void write_whole(Pass& pass) {
  const WorkingDirectory directory;
  directory.write("file", "0123456789");
  const int result = faulty(pass, [] { return g_file_write_buf("file", "abcd", 4); });
  EXPECT_EQ(result, pass.struck(Call::kOpen, Call::kAllocation, Call::kWrite) ? -1 : 0);
  EXPECT_EQ(pass.reports() != 0, result != 0);
  int64_t written = 4;
  if (pass.struck(Call::kOpen, Call::kAllocation)) {
    written = 0;
  } else if (pass.struck(Call::kWrite)) {
    written = std::max<int64_t>(transferred(pass, true, 4), 0);
  }
  std::string expected = "0123456789";
  expected.replace(0, static_cast<size_t>(written),
                   std::string("abcd", static_cast<size_t>(written)));
  EXPECT_EQ(read_file("file"), expected);
}

void remove_file(Pass& pass) {
  const WorkingDirectory directory;
  directory.write("file", "x");
  const int result = faulty(pass, [] { return g_file_remove("file"); });
  const bool is_refused = pass.struck(Call::kUnlink) != 0;
  EXPECT_EQ(result, is_refused ? -1 : 0);
  EXPECT_EQ(pass.reports(), is_refused ? 1 : 0);
  EXPECT_EQ(access("file", F_OK) == 0, is_refused);
}

void rename_file(Pass& pass) {
  const WorkingDirectory directory;
  directory.write("file", "x");
  const int result = faulty(pass, [] { return g_file_rename("file", "new"); });
  const bool is_refused = pass.struck(Call::kRename) != 0;
  EXPECT_EQ(result, is_refused ? -1 : 0);
  EXPECT_EQ(pass.reports(), is_refused ? 1 : 0);
  EXPECT_EQ(access("file", F_OK) == 0, is_refused);
  EXPECT_EQ(access("new", F_OK) == 0, !is_refused);
}

void touch_file(Pass& pass) {
  const WorkingDirectory directory;
  // A file that cannot be made counts as success too.
  EXPECT_EQ(faulty(pass, [] { return g_file_touch("file"); }), 0);
  EXPECT_EQ(access("file", F_OK) == 0, pass.struck(Call::kOpen) == 0);
}

void copy_file(Pass& pass) {
  const WorkingDirectory directory;
  std::string content;
  for (int i = 0; content.size() < 20000; ++i) content += std::to_string(i) + " ";
  directory.write("from", content);
  directory.write("to", "old");
  const int result = faulty(pass, [] { return g_file_copy("from", "to"); });
  // A failed read ends the copy like the end of the file does.
  const bool is_refused = pass.struck(Call::kOpen, Call::kAllocation, Call::kWrite) != 0;
  EXPECT_EQ(result, is_refused ? -1 : 0);
  EXPECT_EQ(pass.reports() != 0, is_refused);
  const std::string copy = read_file("to");
  if (pass.struck(Call::kOpen, Call::kAllocation)) {
    EXPECT_TRUE(copy == "old" || copy.empty());
  } else if (pass.struck_only(Call::kClose) ||
             (pass.struck_only(Call::kRead) && pass.kind() > Effect::kEnd)) {
    EXPECT_EQ(copy, content);
  } else {
    EXPECT_EQ(copy, content.substr(0, copy.size()));
  }
  EXPECT_EQ(read_file("from"), content);
}

// --- Maps.

constexpr int64_t kPage = 4096;

void write_pages(const WorkingDirectory& directory) {
  const auto page = static_cast<size_t>(kPage);
  directory.write("file", std::string(page, 'a') + std::string(page, 'b'));
}

void map_file(Pass& pass) {
  const WorkingDirectory directory;
  write_pages(directory);
  void* address = nullptr;
  GFileMap* const map =
      faulty(pass, [&] { return g_file_map("file", 0, kPage, 0, &address); });
  EXPECT_EQ(map == nullptr, pass.struck(Call::kOpen, Call::kAllocation, Call::kMmap) != 0);
  EXPECT_EQ(address == nullptr, map == nullptr);
  if (map == nullptr) {
    EXPECT_GE(pass.reports(), 1);
    return;
  }
  EXPECT_EQ(static_cast<char*>(address)[kPage - 1], 'a');
  int64_t length = 0;
  EXPECT_EQ(faulty(pass, [&] { return g_file_map_get_addr(map, &length); }), address);
  EXPECT_EQ(length, kPage);
  const int synced = faulty(pass, [&] { return g_file_map_sync(map); });
  EXPECT_EQ(synced, pass.struck(Call::kMsync) ? -1 : 0);
  const Since since(pass);
  faulty(pass, [&] {
    g_file_unmap(map);
    return 0;
  });
  if (since.struck(Call::kMunmap)) munmap(address, static_cast<size_t>(kPage));
}

void move_map(Pass& pass) {
  const WorkingDirectory directory;
  write_pages(directory);
  GFile* const file = open_file(pass, "file", 0);
  if (file == nullptr) return;
  EXPECT_EQ(faulty(pass, [] { return g_file_map_page_size(); }), getpagesize());
  void* first = nullptr;
  GFileMap* map =
      faulty(pass, [&] { return g_file_remap(nullptr, file, 0, kPage, 0, &first); });
  EXPECT_EQ(map == nullptr, pass.struck(Call::kAllocation, Call::kMmap) != 0);
  if (map != nullptr) {
    const Since moving(pass);
    void* second = nullptr;
    // A map that cannot be moved is freed.
    map = faulty(pass, [&] { return g_file_remap(map, file, kPage, kPage, 0, &second); });
    EXPECT_EQ(map == nullptr, moving.struck(Call::kMmap));
    if (moving.struck(Call::kMunmap)) munmap(first, static_cast<size_t>(kPage));
    if (map != nullptr) {
      EXPECT_EQ(*static_cast<char*>(second), 'b');
      const Since unmapping(pass);
      faulty(pass, [&] {
        g_file_unmap(map);
        return 0;
      });
      if (unmapping.struck(Call::kMunmap)) munmap(second, static_cast<size_t>(kPage));
    }
  }
  close_file(pass, file);  // still owned by the caller
}

// --- Directories. Relative paths: a removal that fails may unlink what is on the way.

void list_directory(Pass& pass) {
  const WorkingDirectory directory;
  directory.make("dir");
  directory.make("dir/sub");
  for (const char* name : {"dir/b", "dir/a", "dir/c"}) directory.write(name, "");
  const int exists = faulty(pass, [] { return g_dir_exist("dir"); });
  EXPECT_EQ(exists, pass.struck(Call::kStat) ? 0 : 1);
  int count = -7;
  const Since since(pass);
  char** const names = faulty(pass, [&] { return g_dir_list("dir", 0, &count); });
  EXPECT_EQ(names == nullptr, since.struck(Call::kScandir, Call::kAllocation));
  EXPECT_EQ(count, names == nullptr ? -7 : 4);
  if (names == nullptr) return;
  std::string text;
  for (char** name = names; *name != nullptr; ++name) text += *name;
  EXPECT_EQ(text, "abcsub");
  faulty(pass, [&] {
    g_dir_list_free(names);
    return 0;
  });
}

void make_directories(Pass& pass) {
  const WorkingDirectory directory;
  constexpr char kPath[] = "a/b/c/d/e/f/g/h/";
  char path[] = "a/b/c/d/e/f/g/h/";
  const int result = faulty(pass, [&] { return g_mkdir(path); });
  EXPECT_STREQ(path, kPath);
  if (!pass.struck()) {
    EXPECT_EQ(result, 0);
    EXPECT_EQ(access(path, F_OK), 0);
  }
  // If a directory is reported to exist and does not, the next mkdir() fails.
  if (result == 0 && !(pass.struck(Call::kMkdir) && pass.error() == EEXIST)) {
    EXPECT_EQ(access(path, F_OK), 0);
  }
  EXPECT_EQ(pass.reports(), result == 0 ? 0 : 1);
}

void write_tree(const WorkingDirectory& directory) {
  directory.make("top");
  directory.write("top/keep", "kept");
  directory.make("top/tree");
  directory.write("top/tree/a", "1");
  directory.write("top/tree/b", "22");
  directory.make("top/tree/sub");
  for (int i = 0; i < 12; ++i) {
    directory.write("top/tree/sub/file" + std::to_string(i), "333");
  }
  directory.make("top/tree/sub/deep");
  directory.make("top/tree/sub/deep/deeper");
  directory.write("top/tree/sub/deep/deeper/file", "1");
}

constexpr int kFilesInTree = 15;

void remove_tree(Pass& pass) {
  const WorkingDirectory directory;
  write_tree(directory);
  const int result = faulty(pass, [] { return g_rmdir("top/tree"); });
  if (!pass.struck()) {
    EXPECT_EQ(result, 0);
    EXPECT_EQ(pass.reports(), 0);
  }
  if (pass.struck_only(Call::kClosedir)) {
    EXPECT_NE(access("top/tree", F_OK), 0);
  }
  EXPECT_EQ(read_file("top/keep"), "kept");
}

// A component that is not a directory is removed, but not if descriptors or memory ran out:
// that says nothing about the component.
void remove_obstacle(Pass& pass) {
  const WorkingDirectory directory;
  directory.make("top");
  directory.write("top/file", "in the way");
  const int result = faulty(pass, [] { return g_rmdir("top/file/tree"); });
  EXPECT_EQ(result, pass.struck(Call::kRmdir) ? -1 : 0);
  EXPECT_EQ(access("top", F_OK), 0);
  const bool is_there = access("top/file", F_OK) == 0;
  if (!pass.struck()) {
    EXPECT_FALSE(is_there);
  } else if (pass.struck(Call::kOpendir) && pass.and_all_later() &&
             (pass.error() == EMFILE || pass.error() == ENFILE || pass.error() == ENOMEM)) {
    EXPECT_TRUE(is_there);
  }
}

int count_file(const char*, const struct stat64*, void* count) {
  ++*static_cast<int*>(count);
  return 1;
}

template <int scan(const char*, GScandirFunc, void*)>
void walk_tree(Pass& pass) {
  const WorkingDirectory directory;
  write_tree(directory);
  int count = 0;
  const int sum = faulty(pass, [&] { return scan("top/tree", count_file, &count); });
  if (pass.struck_only(Call::kClosedir, Call::kPrintf)) {
    EXPECT_EQ(count, kFilesInTree);
    EXPECT_EQ(sum, 2);
  }
  EXPECT_LE(count, kFilesInTree);
  EXPECT_LE(sum, 2);
}

// --- Figures.

void lock_memory(Pass& pass) {
  const int locked = faulty(pass, [] { return g_sys_lock_memory(); });
  EXPECT_EQ(locked, pass.struck(Call::kMlockall) ? -1 : 0);
  const int unlocked = faulty(pass, [] { return g_sys_unlock_memory(); });
  EXPECT_EQ(unlocked, pass.struck(Call::kMunlockall) ? -1 : 0);
}

void use_of_filesystem(Pass& pass) {
  const WorkingDirectory directory;
  uint32_t total = 0;
  uint32_t available = 0;
  const int result =
      faulty(pass, [&] { return g_sys_get_filesystem_usage(".", &total, &available); });
  EXPECT_EQ(result, pass.struck() ? -1 : 0);
  EXPECT_EQ(pass.reports(), pass.struck() ? 1 : 0);
  EXPECT_EQ(total == 0, pass.struck());
  EXPECT_GE(total, available);
}

// -1 if the file cannot be read, else as without faults.
template <typename Function>
void expect_figure(Pass& pass, Function figure) {
  const int result = faulty(pass, figure);
  if (pass.struck(Call::kFopen, Call::kFgets)) {
    EXPECT_EQ(result, -1);
  } else if (result != -1 || pass.struck(Call::kAllocation) == 0) {
    // Without memory for its buffer the stream still reads.
    EXPECT_EQ(result == -1, figure() == -1);
    EXPECT_LE(result, 100);
  }
}

void load_of_processor(Pass& pass) {
  expect_figure(pass, [] { return g_sys_cpu_load(0); });
}

void use_of_memory(Pass& pass) {
  expect_figure(pass, [] { return g_sys_mem_use(); });
}

const Scenarios scenarios(
    "sys",
    {
        {"ReadAHandle",
         {"g_file_open", "g_file_close", "g_file_read", "g_file_seek"},
         read_handle},
        {"WriteAHandle", {"g_file_write", "g_file_truncate"}, write_handle},
        {"CreateAHandle", {}, create_handle},
        {"Lock", {"g_file_lock_read", "g_file_lock_write", "g_file_unlock"}, lock_handle},
        {"LookAtAFile", {"g_file_size", "g_file_exist", "g_file_exist_path"}, look_at_file},
        {"ReadAWholeFile", {"g_file_read_buf"}, read_whole},
        {"WriteAWholeFile", {"g_file_write_buf"}, write_whole},
        {"RemoveAFile", {"g_file_remove"}, remove_file},
        {"RenameAFile", {"g_file_rename"}, rename_file},
        {"TouchAFile", {"g_file_touch"}, touch_file},
        {"CopyAFile", {"g_file_copy"}, copy_file},
        {"MapAFile",
         {"g_file_map", "g_file_map_get_addr", "g_file_map_sync", "g_file_unmap"},
         map_file},
        {"MoveAMap", {"g_file_remap", "g_file_map_page_size"}, move_map},
        {"ListADirectory",
         {"g_dir_exist", "g_dir_list", "g_dir_list_free"},
         list_directory},
        {"MakeDirectories", {"g_mkdir"}, make_directories},
        {"RemoveATree", {"g_rmdir"}, remove_tree},
        {"RemoveWhatIsInTheWay", {}, remove_obstacle},
        {"WalkATree", {"g_scandir"}, walk_tree<g_scandir>},
        {"WalkATreeWith64BitTimes", {"g_scandir_time64"}, walk_tree<g_scandir_time64>},
        {"LockMemory", {"g_sys_lock_memory", "g_sys_unlock_memory"}, lock_memory},
        {"UseOfAFilesystem", {"g_sys_get_filesystem_usage"}, use_of_filesystem},
        {"LoadOfAProcessor", {"g_sys_cpu_load"}, load_of_processor},
        {"UseOfMemory", {"g_sys_mem_use"}, use_of_memory},
    });

}  // namespace
