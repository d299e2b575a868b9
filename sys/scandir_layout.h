// g_scandir() for the layout of struct stat64 in this compilation. Included by one source
// file per layout; the public header gives each its symbol.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SYS_SCANDIR_LAYOUT_H
#define GROUNDWORK_SYS_SCANDIR_LAYOUT_H

#include <groundwork/dir.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <limits>
#include <type_traits>

#include <sys/stat.h>

#include "sys/scandir.h"

namespace {

struct Application {
  GScandirFunc func;
  void* data;
};

// A time out of the layout's range becomes the nearest in range: a file must not vanish
// from the walk because a clock was once wrong.
inline struct timespec native_time(const groundwork::FileTime& time) {
  using Limits = std::numeric_limits<std::time_t>;
  struct timespec native = {};
  native.tv_sec = static_cast<std::time_t>(
      std::clamp<int64_t>(time.seconds, Limits::min(), Limits::max()));
  native.tv_nsec = time.nanoseconds;
  return native;
}

template <typename Status>
Status native_status(const groundwork::FileStatus& status) {
  Status native = {};
  const auto set = [](auto& field, auto value) {
    field = static_cast<std::remove_reference_t<decltype(field)>>(value);
  };
  set(native.st_dev, status.device);
  set(native.st_ino, status.inode);
  // The layout with 32-bit times also has an older field for the low half of the inode
  // number.
  if constexpr (requires { native.__st_ino; }) set(native.__st_ino, status.inode);
  set(native.st_nlink, status.links);
  set(native.st_mode, status.mode);
  set(native.st_uid, status.user);
  set(native.st_gid, status.group);
  set(native.st_rdev, status.special_device);
  set(native.st_size, status.size);
  set(native.st_blksize, status.block_size);
  set(native.st_blocks, status.blocks);
  native.st_atim = native_time(status.accessed);
  native.st_mtim = native_time(status.modified);
  native.st_ctim = native_time(status.changed);
  return native;
}

// The type comes from the callback: not every C library has a struct stat64.
template <typename Status>
int call(int (*func)(const char*, const Status*, void*), const char* path,
         const groundwork::FileStatus& status, void* data) {
  const auto native = native_status<Status>(status);
  return func(path, &native, data);
}

inline int call_application(const char* path, const groundwork::FileStatus& status,
                            void* context) {
  const auto& application = *static_cast<const Application*>(context);
  return call(application.func, path, status, application.data);
}

// g_scandir() for an application with this layout.
inline int scan_for_application(const char* path, GScandirFunc func, void* data) {
  Application application{func, data};
  return groundwork::walk_files(path, call_application, &application);
}

}  // namespace

#endif
