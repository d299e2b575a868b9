// Directories by path: test, list, create with parents, remove a tree.
//
// SPDX-License-Identifier: MIT

#include <groundwork/dir.h>
#include <groundwork/str.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/cancellation.h"
#include "core/check.h"
#include "core/owned.h"
#include "sys/descriptors.h"
#include "sys/tree_walk.h"

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_dir";
constexpr mode_t kPermissions = 0755;

enum Filter { kDirectories = 1, kAllButDirectories = 2 };

// Goes by the type in the entry, without stat(), so that listing takes one pass over the
// directory.
bool is_listed(const struct dirent& entry, int filter) {
  if (is_dot_name(entry.d_name)) return false;
  if (filter == kDirectories) return entry.d_type == DT_DIR;
  if (filter == kAllButDirectories) return entry.d_type != DT_DIR;
  return true;
}

// Returns the listed names of `found` entries, in a null-terminated array; null when memory
// is exhausted.
char** copy_names(struct dirent* const* entries, int found, int filter, int& kept) {
  const auto listed = [filter](const struct dirent* entry) {
    return is_listed(*entry, filter);
  };
  kept = static_cast<int>(std::count_if(entries, entries + found, listed));
  // "." and "..", on filesystems that have them, leave room for the terminator.
  const auto size = static_cast<size_t>(std::max(found, kept + 1));
  auto** const names = static_cast<char**>(std::calloc(size, sizeof(char*)));
  if (names == nullptr) [[unlikely]]
    return nullptr;
  char** next = names;
  for (int i = 0; i < found; ++i) {
    if (!listed(entries[i])) continue;
    *next = g_strdup(entries[i]->d_name);
    if (*next++ == nullptr) [[unlikely]] {
      g_strfreev(names);
      return nullptr;
    }
  }
  return names;
}

// Creates the directory that `path` names up to `slash`, which is restored before anything
// is logged, as that may end the thread.
bool create_parent(const char* path, char* slash) {
  *slash = '\0';
  const bool exists = mkdir(path, kPermissions) == 0 || errno == EEXIST;
  *slash = '/';
  if (!exists) {
    const int error = errno;
    g_log(G_LOG_WARNING, kSource, __LINE__, "%s - %.*s(%d).", std::strerror(error),
          static_cast<int>(slash - path), path, error);
  }
  return exists;
}

// Errors that say nothing about the path, only that the process or the system has run out
// of something.
bool is_shortage(int error) {
  return error == EMFILE || error == ENFILE || error == ENOMEM;
}

// Unlinks the first prefix of `path` that cannot be opened as a directory.
void unlink_obstacle(const char* path) {
  char prefix[PATH_MAX];
  if (path[0] == '\0') return;
  prefix[0] = path[0];
  for (size_t length = 1; length < sizeof prefix && path[length] != '\0'; ++length) {
    if (path[length] == '/') {
      prefix[length] = '\0';
      DIR* const directory = open_directory(prefix);
      if (directory == nullptr) {
        // Running out of descriptors must not remove a link to an intact directory.
        if (!is_shortage(errno)) unlink(prefix);
        return;
      }
      closedir(directory);
    }
    prefix[length] = path[length];
  }
}

void remove_unopened(const char* path) {
  g_log(G_LOG_WARNING, kSource, __LINE__, "%s - %s", std::strerror(errno), path);
  unlink(path);
  unlink_obstacle(path);
}

// Removes an entry of the walk's current directory, or enters it.
// Kept: links are followed, so the target of a link to a directory is emptied, too.
void remove_entry(TreeWalk& walk, const char* name) {
  struct stat status;
  const bool fits = walk.set_entry(name, true);
  if (!fits) errno = ENAMETOOLONG;
  if (!fits || stat(walk.path(), &status) != 0) {
    if (errno != ENOENT) {
      g_log(G_LOG_WARNING, kSource, __LINE__, "%s - %s.", std::strerror(errno),
            walk.path());
    }
  } else if (!S_ISDIR(status.st_mode)) {
    unlink(walk.path());
  } else if (walk.enter(walk.path()) == TreeWalk::EnterResult::kNotOpened) {
    remove_unopened(walk.path());
  }
}

[[gnu::noinline]] int remove_tree(TreeWalk& walk, const char* path) {
  switch (walk.enter(path)) {
    case TreeWalk::EnterResult::kNotOpened:
      remove_unopened(path);
      return 0;
    case TreeWalk::EnterResult::kNoMemory:
      return -1;
    case TreeWalk::EnterResult::kEntered:
      break;
  }
  int result = 0;
  do {
    while (const char* const name = walk.next_name()) remove_entry(walk, name);
    walk.set_directory();
    result = rmdir(walk.path());
    if (result != 0) unlink(walk.path());  // it was a link to a directory
  } while (walk.leave());
  return result;
}

}  // namespace

extern "C" int g_dir_exist(const char* path) {
  CHECK_ARG(path != NULL, 0);
  struct stat status;
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

extern "C" char** g_dir_list(const char* path, int filter, int* count) {
  CHECK_ARG(path != NULL, nullptr);
  struct dirent** entries = nullptr;
  const int found = scandir(path, &entries, nullptr, alphasort);
  const Owned<struct dirent*> owned(entries);
  if (found < 1) return nullptr;
  int kept = 0;
  char** const names = copy_names(entries, found, filter, kept);
  for (int i = 0; i < found; ++i) std::free(entries[i]);
  if (names != nullptr && count != nullptr) *count = kept;
  return names;
}

extern "C" void g_dir_list_free(char** dir_list) {
  CHECK_ARG(dir_list != NULL);
  g_strfreev(dir_list);
}

// Kept: after its parents were created, the last component is not tried again, unless a
// slash follows it.
extern "C" int g_mkdir(char* path) {
  CHECK_ARG(path != NULL, -1);
  if (mkdir(path, kPermissions) == 0 || path[0] == '\0') return 0;
  for (char* slash = path + 1; (slash = std::strchr(slash, '/')) != nullptr; ++slash) {
    if (!create_parent(path, slash)) return -1;
  }
  return 0;
}

extern "C" int g_rmdir(const char* path) {
  TreeWalk walk;
  int result = 0;
  with_cleanup(TreeWalk::abandon, &walk, [&] { result = remove_tree(walk, path); });
  return result;
}
