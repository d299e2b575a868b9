// "~" to home directories and back. Results are in a static buffer for each direction: no
// allocation, nothing to free, not reentrant.
//
// SPDX-License-Identifier: MIT

#include <groundwork/url.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <pwd.h>

namespace {

constexpr size_t kBufferSize = 8192;

char expanded[kBufferSize];
char unexpanded[kBufferSize];

// The home directory in the environment; null if there is none. An empty one counts.
const char* home_of_environment() {
  const char* const home = std::getenv("HOME");
  return home != nullptr ? home : std::getenv("home");
}

// The home directory of the user whose name is the `length` characters at `name`; null if
// there is no such user. Uses `expanded` for the name.
const char* home_of_user(const char* name, size_t length) {
  length = std::min(length, kBufferSize - 1);
  std::memmove(expanded, name, length);
  expanded[length] = '\0';
  const passwd* const user = getpwnam(expanded);
  return user != nullptr ? user->pw_dir : nullptr;
}

// Appends as much of `text` as fits to the `length` characters in `expanded`; returns the
// new length.
size_t append(size_t length, const char* text) {
  const size_t added = strnlen(text, kBufferSize - 1 - length);
  std::memmove(expanded + length, text, added);
  expanded[length + added] = '\0';
  return length + added;
}

}  // namespace

extern "C" const char* url_expand_home_dir(const char* path) {
  if (path[0] != '~') return path;
  const char* const name = path + 1;
  const size_t name_length = std::strcspn(name, "/");
  const char* home;
  if (*name == '/') {
    home = home_of_environment();
    if (home == nullptr) return name;  // the '~' is dropped
  } else {
    // "~" alone as well: no user has an empty name.
    home = home_of_user(name, name_length);
    if (home == nullptr) return path;
  }
  append(append(0, home), name + name_length);
  return expanded;
}

extern "C" const char* url_unexpand_home_dir(const char* path) {
  if (path[0] != '/') return path;
  const char* const home = home_of_environment();
  if (home == nullptr) return path;
  size_t length = std::strlen(home);
  if (length == 0 || length >= kBufferSize - 2) return path;
  std::memcpy(unexpanded, home, length);
  if (unexpanded[length - 1] != '/') unexpanded[length++] = '/';
  // Compares the '/', too: the directory itself and longer names are not below it.
  if (std::strncmp(path, unexpanded, length) != 0) return path;
  const char* const rest = path + length;
  const size_t rest_length = std::strlen(rest);
  unexpanded[0] = '~';
  unexpanded[1] = '/';
  if (rest_length >= kBufferSize - 3) return path;
  std::memmove(unexpanded + 2, rest, rest_length + 1);
  return unexpanded;
}
