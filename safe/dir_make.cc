// A directory with all its parents.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include <sys/stat.h>

#include "core/check.h"
#include "core/owned.h"
#include "safe/failure.h"
#include "safe/file_descriptor.h"

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_dir";
constexpr mode_t kWriteAndSearch = S_IWUSR | S_IXUSR;

bool made(const char* path, mode_t mode) {
  return uninterrupted([=] { return mkdir(path, mode); }) == 0;
}

// After a failed mkdir(): returns whether the directory already exists. mkdir() may fail
// for another reason even so, as on a read-only filesystem.
bool is_there(const char* path) {
  const int error = errno;
  struct stat status;
  const auto ask = [&] { return stat(path, &status); };
  if (error != ENOENT && uninterrupted(ask) == 0 && S_ISDIR(status.st_mode)) return true;
  const bool is_in_the_way = error == EEXIST || error == ELOOP;
  errno = is_in_the_way ? ENOTDIR : error;
  return false;
}

// Restores the owner's permissions that the umask removed from a new directory, without
// which the next component could not be created.
bool open_to_owner(const char* path) {
  struct stat status;
  if (uninterrupted([&] { return lstat(path, &status); }) != 0) return false;
  const mode_t mode = status.st_mode & 07777;
  return !S_ISDIR(status.st_mode) || (mode & kWriteAndSearch) == kWriteAndSearch ||
         uninterrupted([=] { return chmod(path, mode | kWriteAndSearch); }) == 0;
}

bool have_parent(const char* path, mode_t mode) {
  return made(path, mode | kWriteAndSearch) ? open_to_owner(path) : is_there(path);
}

bool have_directory(const char* path, mode_t mode) {
  return made(path, mode) || is_there(path);
}

bool have_parents_and_directory(const char* path, mode_t mode) {
  size_t length = std::strlen(path);
  while (length > 1 && path[length - 1] == '/') --length;
  const Owned<char> copy(static_cast<char*>(std::malloc(length + 1)));
  if (copy == nullptr) return false;
  char* const prefix = copy.get();
  std::memcpy(prefix, path, length);
  prefix[length] = '\0';
  for (char* slash = prefix + 1; (slash = std::strchr(slash, '/')) != nullptr; ++slash) {
    *slash = '\0';
    if (!have_parent(prefix, mode)) return false;
    *slash = '/';
  }
  return have_directory(prefix, mode);
}

}  // namespace

extern "C" int g_dir_make(const char* path, unsigned mode) {
  CHECK_ARG(path != NULL, fail(EINVAL));
  if (have_directory(path, mode)) return 0;
  if (errno != ENOENT || path[0] == '\0') return -1;
  return have_parents_and_directory(path, mode) ? 0 : -1;
}
