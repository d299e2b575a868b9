// Identifies the directory of a name or a descriptor, and its mount.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_DIR_IDENTITY_H
#define GROUNDWORK_SAFE_DIR_IDENTITY_H

#include <cstdint>

namespace groundwork {

struct DirIdentity {
  uint64_t inode;
  uint32_t device;  // the kernel's number, which has 32 bits
  bool operator==(const DirIdentity&) const = default;
};

struct DirEntry {
  DirIdentity identity;
  uint64_t mount;  // 0 if the kernel does not tell
  bool is_directory;
};

// Examines a name in an open directory, or with "" the directory itself, without following
// links. False with errno set on failure.
bool examine(int directory, const char* name, DirEntry* entry);

// Compares the mounts if both are known, otherwise the devices, which two mounts of the
// same filesystem share.
bool is_same_mount(const DirEntry& one, const DirEntry& other);

}  // namespace groundwork

#endif
