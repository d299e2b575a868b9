// An atomic replacement of a file: the new content is written to a temporary file, which
// replaces the old file once it is on the disk.
//
//   Replacement replacement;
//   if (!replacement.find(path) || !replacement.create() || !replacement.write(...)) {
//     return -1;
//   }
//   return replacement.commit();
//
// Until commit() the file is unchanged, and the destructor removes the temporary file. Each
// function sets errno on failure. The caller holds off cancellation.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_FILE_REPLACEMENT_H
#define GROUNDWORK_SAFE_FILE_REPLACEMENT_H

#include <climits>
#include <cstddef>
#include <cstdint>
#include <ctime>

#include <sys/stat.h>

#include "core/owned.h"
#include "safe/file_descriptor.h"

namespace groundwork {

class Replacement {
 public:
  Replacement();
  ~Replacement();
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  // Finds the file of the path, following links, and locks its directory: nobody else
  // replaces a file in it as long as this object exists.
  bool find(const char* path);

  // After find(): the directory of the file, and its name there.
  int directory() const { return directory_.get(); }
  const char* name() const { return name_; }
  // After find(): the existing regular file; null for a new file.
  const struct stat* file() const { return exists_ ? &file_ : nullptr; }
  // After find(): returns whether this other file will stay. False, with EINVAL, if it is
  // the one to replace, or has the name of the temporary file, which create() removes.
  bool spares(const struct stat& other) const;

  // Sets the mode of the new file, instead of that of the old one, or 0644 less the umask.
  void set_mode(mode_t mode);
  // Creates the temporary file.
  bool create();
  bool write(const void* data, size_t size);
  // Puts the content in place, with these times of access and modification if not null.
  // Returns 0; 1 if it is in place, but the directory could not be synced; -1 if nothing
  // was changed.
  int commit(const timespec* times = nullptr);

 private:
  enum class Look { kFound, kMoved, kFailed };

  bool resolve(const char* path);
  bool lock_directory();
  Look look(const char* path);
  void name_temporary(size_t longest);
  bool examine(const char* name, struct stat* status) const;
  bool remove_temporary();
  bool set_owner_and_mode();
  bool is_as_wanted(const struct stat& status) const;
  bool close_temporary();
  void leave_directory();

  Owned<char> paths_;  // name_ points into one
  const char* name_ = nullptr;
  Descriptor directory_;
  int links_ = 0;  // followed on the way there
  bool is_locked_ = false;
  bool has_waited_ = false;     // for the lock
  uint32_t waiting_since_ = 0;  // in milliseconds, if it has waited

  bool exists_ = false;
  struct stat file_ {};
  mode_t mode_ = 0;
  bool mode_is_exact_ = false;  // regardless of the umask

  char temporary_name_[NAME_MAX + 1];
  Descriptor temporary_;
  bool is_created_ = false;
};

}  // namespace groundwork

#endif
