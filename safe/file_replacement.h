// One replacement of a file: the new content grows beside the old one and takes its place
// in one step, when it is on the disk.
//
//   Replacement replacement;
//   if (!replacement.find(path) || !replacement.create() || !replacement.write(...)) return
//   -1; return replacement.commit();
//
// Until commit() the file is untouched, and the destructor takes the new content away
// again. Each function leaves errno to its failure. The caller holds off cancellation.
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

  // Goes where the path leads, links followed, and locks the directory there: nobody else
  // replaces a file in it while this object lives.
  bool find(const char* path);

  // After find(): the file that is there, which is a regular one. Null for a new file.
  const struct stat* file() const { return exists_ ? &file_ : nullptr; }
  // After find(): whether this file stays. False, with EINVAL, when it is the one to
  // replace, or has the name of the temporary file, which create() clears.
  bool spares(const struct stat& other) const;

  // The mode that the file gets, instead of the one that it has, or 0644 less the umask.
  void set_mode(mode_t mode);
  // Makes the temporary file.
  bool create();
  bool write(const void* data, size_t size);
  // Puts the content in place, with these times of access and modification if there are
  // any. 0; 1 in place, but the directory could not be synced; -1 nothing was changed.
  int commit(const timespec* times = nullptr);

 private:
  enum class Look { kFound, kMoved, kFailed };

  bool resolve(const char* path);
  bool lock_directory();
  Look look(const char* path);
  void name_temporary(size_t longest);
  bool set_owner_and_mode();
  bool is_as_wanted(const struct stat& status) const;
  bool close_temporary();
  void leave_directory();

  Owned<char> paths_;  // name_ is the end of one
  const char* name_ = nullptr;
  Descriptor directory_;
  int links_ = 0;  // followed on the way there
  bool is_locked_ = false;
  bool has_waited_ = false;  // for the lock, from this time on, in milliseconds
  uint32_t waiting_since_ = 0;

  bool exists_ = false;
  struct stat file_ {};
  mode_t mode_ = 0;
  bool mode_is_exact_ = false;  // given to the file whatever the umask

  char temporary_name_[NAME_MAX + 1];
  Descriptor temporary_;
  bool is_created_ = false;
};

}  // namespace groundwork

#endif
