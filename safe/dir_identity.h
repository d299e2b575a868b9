// Which directory a name or a descriptor leads to, and on which mount.
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
  uint64_t mount;  // 0 where the kernel does not say
  bool is_directory;
};

// Examines a name in an open directory, or with "" the directory itself. A link is not
// followed. False with errno set on failure.
bool examine(int directory, const char* name, DirEntry* entry);

// By the mounts' identities where both are known. Else by the devices, which two mounts of
// one filesystem share.
bool is_same_mount(const DirEntry& one, const DirEntry& other);

}  // namespace groundwork

#endif
