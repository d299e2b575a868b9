// The walk of g_scandir(), free of any layout of struct stat64: on 32-bit targets an
// application's has 32-bit or 64-bit times, as it was compiled.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SYS_SCANDIR_H
#define GROUNDWORK_SYS_SCANDIR_H

#include <cstdint>

namespace groundwork {

struct FileTime {
  std::int64_t seconds;
  std::int32_t nanoseconds;
};

// The fields of struct stat64, each wide enough for every target.
struct FileStatus {
  std::uint64_t device;
  std::uint64_t inode;
  std::uint64_t links;
  std::uint32_t mode;
  std::uint32_t user;
  std::uint32_t group;
  std::uint64_t special_device;
  std::int64_t size;
  std::int64_t block_size;
  std::int64_t blocks;
  FileTime accessed;
  FileTime modified;
  FileTime changed;
};

using VisitFile = int (*)(const char* path, const FileStatus& status, void* context);

// Calls `visit` for everything below `path` but directories. Returns the sum of its results
// for the entries of `path` itself.
int walk_files(const char* path, VisitFile visit, void* context);

}  // namespace groundwork

#endif
