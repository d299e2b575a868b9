// Uses statx() if the kernel has it, since only that distinguishes mounts.
//
// SPDX-License-Identifier: MIT

#include "safe/dir_identity.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "safe/file_descriptor.h"

using namespace groundwork;

namespace {

// Without AT_NO_AUTOMOUNT, examining a name could mount something.
constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_EMPTY_PATH;

#if defined(STATX_MNT_ID)
using Statx = struct statx;
constexpr unsigned kMountIdentity = STATX_MNT_ID;

int call_statx(int directory, const char* name, unsigned wanted, Statx* status) {
  return statx(directory, name, kFlags, wanted, status);
}
#elif defined(SYS_statx)
// The kernel's layout, for C libraries with an older statx() or none.
struct Statx {
  uint32_t stx_mask;
  uint32_t stx_blksize;
  uint64_t stx_attributes;
  uint32_t stx_nlink;
  uint32_t stx_uid;
  uint32_t stx_gid;
  uint16_t stx_mode;
  uint16_t unused;
  uint64_t stx_ino;
  uint64_t sizes_and_times[11];
  uint32_t stx_rdev_major;
  uint32_t stx_rdev_minor;
  uint32_t stx_dev_major;
  uint32_t stx_dev_minor;
  uint64_t stx_mnt_id;
  uint64_t later[13];
};
static_assert(sizeof(Statx) == 256);
constexpr unsigned kMountIdentity = 0x1000;

int call_statx(int directory, const char* name, unsigned wanted, Statx* status) {
  return static_cast<int>(syscall(SYS_statx, directory, name, kFlags, wanted, status));
}
#else
struct Statx {
  uint32_t stx_mask, stx_dev_major, stx_dev_minor;
  uint64_t stx_ino, stx_mnt_id;
  mode_t stx_mode;
};
constexpr unsigned kMountIdentity = 0;

int call_statx(int, const char*, unsigned, Statx*) {
  errno = ENOSYS;
  return -1;
}
#endif

// The kernel's own packing.
uint32_t device_of(unsigned major_number, unsigned minor_number) {
  return major_number << 20 | minor_number;
}

constexpr unsigned kTypeAndInode = 0x101;  // STATX_TYPE | STATX_INO

}  // namespace

bool groundwork::examine(int directory, const char* name, DirEntry* entry) {
  Statx status = {};
  constexpr unsigned kWanted = kTypeAndInode | kMountIdentity;
  if (uninterrupted([&] { return call_statx(directory, name, kWanted, &status); }) == 0) {
    const bool has_mount = (status.stx_mask & kMountIdentity) != 0;
    entry->identity = {status.stx_ino,
                       device_of(status.stx_dev_major, status.stx_dev_minor)};
    entry->mount = has_mount ? status.stx_mnt_id : 0;
    entry->is_directory = S_ISDIR(status.stx_mode);
    return true;
  }
  // A kernel before 4.11, or a system call filter that does not know statx().
  if (errno != ENOSYS && errno != EPERM) return false;
  struct stat older;
  if (uninterrupted([&] { return fstatat(directory, name, &older, kFlags); }) != 0) {
    return false;
  }
  entry->identity = {older.st_ino, device_of(major(older.st_dev), minor(older.st_dev))};
  entry->mount = 0;
  entry->is_directory = S_ISDIR(older.st_mode);
  return true;
}

bool groundwork::is_same_mount(const DirEntry& one, const DirEntry& other) {
  if (one.mount != 0 && other.mount != 0) return one.mount == other.mount;
  return one.identity.device == other.identity.device;
}
