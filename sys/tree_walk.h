// The position of a walk through a directory tree: the path in one buffer, and for each
// directory on the way down the names still to be visited.
//
// All names of a directory are read, and its descriptor closed, before the first is
// visited, so depth costs no descriptors; the levels are a list on the heap, so it costs no
// stack, either.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SYS_TREE_WALK_H
#define GROUNDWORK_SYS_TREE_WALK_H

#include <climits>
#include <cstddef>

namespace groundwork {

// Returns whether the name is "." or "..".
bool is_dot_name(const char* name);

class TreeWalk {
 public:
  // The result of enter(): the names can be read; the directory cannot be opened (see
  // errno); or there was no memory, which has been reported.
  enum class EnterResult { kEntered, kNotOpened, kNoMemory };

  TreeWalk() = default;
  TreeWalk(const TreeWalk&) = delete;
  TreeWalk& operator=(const TreeWalk&) = delete;

  // Enters a directory; `path` may be path().
  EnterResult enter(const char* path);

  // Returns the next name in the directory; null after the last.
  const char* next_name();

  // Sets path() to a name in the directory, with or without a slash before it. False if it
  // is too long: path() is then cut, and may be that of another file.
  bool set_entry(const char* name, bool with_slash);

  // Sets path() back to the directory.
  void set_directory();

  // Goes up. Returns false after the top directory.
  bool leave();

  // Returns whether the directory is the one that the walk began with.
  bool at_top() const;
  bool ends_with_slash() const;     // of the directory's path
  size_t directory_length() const;  // of the directory's path, the start of path()
  const char* path() const { return path_; }

  // Cleanup handler: frees what a cancelled walk holds. Hidden as close_file() is.
  [[gnu::visibility("hidden")]] static void abandon(void* walk);

 private:
  struct Level;
  class LevelReader;

  Level* level_ = nullptr;
  char path_[PATH_MAX];
};

}  // namespace groundwork

#endif
