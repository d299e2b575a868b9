// The walk of g_scandir(). Its two messages go to standard output, not to the log: programs
// print a trace there, which they are part of.
//
// SPDX-License-Identifier: MIT

#include "sys/scandir.h"

#include <cstdio>

#include <pthread.h>
#include <sys/stat.h>

#include "core/cancellation.h"
#include "sys/tree_walk.h"

using namespace groundwork;

namespace {

constexpr auto kNotOpened = TreeWalk::EnterResult::kNotOpened;

struct Visitor {
  VisitFile visit;
  void* context;
  unsigned sum;  // wraps like the int that it becomes
};

FileTime time_of(const struct timespec& time) {
  return {time.tv_sec, static_cast<int32_t>(time.tv_nsec)};
}

FileStatus status_of(const struct stat& status) {
  return {
      .device = status.st_dev,
      .inode = status.st_ino,
      .links = status.st_nlink,
      .mode = status.st_mode,
      .user = status.st_uid,
      .group = status.st_gid,
      .special_device = status.st_rdev,
      .size = status.st_size,
      .block_size = status.st_blksize,
      .blocks = status.st_blocks,
      .accessed = time_of(status.st_atim),
      .modified = time_of(status.st_mtim),
      .changed = time_of(status.st_ctim),
  };
}

void report_unopened(const char* path) {
  std::printf("g_dir:%d opendir('%s') fail\n", __LINE__, path);
}

// Visits an entry of the walk's current directory, or enters it.
void visit_entry(TreeWalk& walk, const char* name, Visitor& visitor) {
  struct stat status;
  // Kept: a name that does not fit is cut, and the file of the cut name is visited.
  walk.set_entry(name, !walk.ends_with_slash());
  if (stat(walk.path(), &status) != 0) {
    std::printf("g_dir:%d stat('%s') fail\n", __LINE__, walk.path());
  } else if (!S_ISDIR(status.st_mode)) {
    const int result = visitor.visit(walk.path(), status_of(status), visitor.context);
    // Kept: the sum covers only files directly in the top directory.
    if (walk.at_top()) visitor.sum += static_cast<unsigned>(result);
  } else if (!walk.set_entry(name, true)) {
    // Under a cut name only files are visited, not directories.
    std::printf("g_dir:%d opendir('%.*s/%s') fail\n", __LINE__,
                static_cast<int>(walk.directory_length()), walk.path(), name);
  } else if (walk.enter(walk.path()) == kNotOpened) {
    report_unopened(walk.path());
  }
}

[[gnu::noinline]] void visit_tree(TreeWalk& walk, const char* path, Visitor& visitor) {
  switch (walk.enter(path)) {
    case kNotOpened:
      report_unopened(path);
      return;
    case TreeWalk::EnterResult::kNoMemory:
      return;
    case TreeWalk::EnterResult::kEntered:
      break;
  }
  do {
    while (const char* const name = walk.next_name()) visit_entry(walk, name, visitor);
  } while (walk.leave());
}

}  // namespace

int groundwork::walk_files(const char* path, VisitFile visit, void* context) {
  TreeWalk walk;
  Visitor visitor{visit, context, 0};
  // The function visited may end the thread.
  with_cleanup(TreeWalk::abandon, &walk, [&] { visit_tree(walk, path, visitor); });
  return static_cast<int>(visitor.sum);
}
