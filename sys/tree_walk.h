// Where a walk through a tree of directories stands: the path in one buffer, and for each
// directory on the way down the names that are still to come.
//
// A directory's names are read at once and its descriptor is closed before the first of
// them is looked at, so depth costs no descriptors; the levels are a list on the heap, so
// depth costs no stack either.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SYS_TREE_WALK_H
#define GROUNDWORK_SYS_TREE_WALK_H

#include <climits>
#include <cstddef>

namespace groundwork {

// Of an entry: whether it is "." or "..".
bool is_dot_name(const char* name);

class TreeWalk {
 public:
  // What became of a directory: its names can be asked for; it cannot be opened, for the
  // reason in errno; or there was no memory, which is reported.
  enum class Entered { kYes, kNotOpened, kNoMemory };

  TreeWalk() = default;
  TreeWalk(const TreeWalk&) = delete;
  TreeWalk& operator=(const TreeWalk&) = delete;

  // Goes down into a directory; `path` may be path().
  Entered enter(const char* path);

  // The next name in the directory; null when all were given.
  const char* next_name();

  // Makes path() the path of a name in the directory, with a slash between or not. False
  // when it is too long for the system: path() is cut then, and may be another file's.
  bool set_entry(const char* name, bool with_slash);

  // Makes path() the directory's own again.
  void set_directory();

  // Goes up. Whether there is a directory left to go on with.
  bool leave();

  // The directory is the one that the walk began with.
  bool at_top() const;
  bool ends_with_slash() const;     // the directory's path
  size_t directory_length() const;  // of the directory's path, which begins path()
  const char* path() const { return path_; }

  // Cleanup for pthread_cleanup_push(): frees what a cancelled walk holds.
  static void abandon(void* walk);

 private:
  struct Level;
  class LevelReader;

  Level* level_ = nullptr;
  char path_[PATH_MAX];
};

}  // namespace groundwork

#endif
