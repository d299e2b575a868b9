// SPDX-License-Identifier: MIT

#include "support/temporary_directory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include <ftw.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

// Or a large inode number or a late time ends the removal of a directory half way.
static_assert(sizeof(off_t) == 8 && sizeof(ino_t) == 8 && sizeof(time_t) == 8);

namespace {

// Memory where there is enough of it and programs may be run from it: a disk takes ten
// times as long for trees of thousands of directories.
const char* default_base() {
  constexpr const char* kMemory = "/dev/shm";
  constexpr fsblkcnt_t kBytes = fsblkcnt_t{512} << 20;
  constexpr fsfilcnt_t kFiles = 300000;
  struct statvfs room;
  const bool serves = access(kMemory, W_OK | X_OK) == 0 && statvfs(kMemory, &room) == 0 &&
                      room.f_bavail >= kBytes / room.f_frsize && room.f_favail >= kFiles &&
                      (room.f_flag & ST_NOEXEC) == 0;
  return serves ? kMemory : "/tmp";
}

int remove_entry(const char* path, const struct stat*, int, struct FTW*) {
  return remove(path);
}

}  // namespace

namespace test {

TemporaryDirectory::TemporaryDirectory() {
  const char* const base = std::getenv("TMPDIR");
  path_ = std::string(base != nullptr ? base : default_base()) + "/groundwork-test-XXXXXX";
  if (mkdtemp(path_.data()) == nullptr) {
    ADD_FAILURE() << "mkdtemp " << path_;
  }
}

TemporaryDirectory::~TemporaryDirectory() {
  const int result = nftw(path_.c_str(), remove_entry, 64, FTW_DEPTH | FTW_PHYS);
  EXPECT_EQ(result, 0) << "not removed: " << path_ << ": " << std::strerror(errno);
}

std::string TemporaryDirectory::operator/(std::string_view name) const {
  return path_ + "/" + std::string(name);
}

std::string TemporaryDirectory::write(std::string_view name,
                                      std::string_view content) const {
  const std::string path = *this / name;
  std::ofstream file(path, std::ios::binary);
  file << content;
  file.close();
  EXPECT_TRUE(file.good()) << path;
  return path;
}

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace test
