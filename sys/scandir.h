// The walk of g_scandir(), independent of the layout of struct stat64: on 32-bit targets an
// application's has 32-bit or 64-bit times, depending on how it was compiled.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SYS_SCANDIR_H
#define GROUNDWORK_SYS_SCANDIR_H

#include <cstdint>

namespace groundwork {

struct FileTime {
  int64_t seconds;
  int32_t nanoseconds;
};

// The fields of struct stat64, each wide enough for every target.
struct FileStatus {
  uint64_t device;
  uint64_t inode;
  uint64_t links;
  uint32_t mode;
  uint32_t user;
  uint32_t group;
  uint64_t special_device;
  int64_t size;
  int64_t block_size;
  int64_t blocks;
  FileTime accessed;
  FileTime modified;
  FileTime changed;
};

using VisitFile = int (*)(const char* path, const FileStatus& status, void* context);

// Calls `visit` for everything below `path` except directories. Returns the sum of its
// results for the entries of `path` itself.
int walk_files(const char* path, VisitFile visit, void* context);

}  // namespace groundwork

#endif
