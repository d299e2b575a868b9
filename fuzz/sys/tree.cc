// Files and directories: random trees and operations, against plain code that does the same
// in a twin of the tree. Messages are compared, too, and in the end every name, kind, mode,
// content and link.
//
// Both trees are in a directory of this process, paths and links lead only downwards, and
// root becomes an ordinary user for the time of an input: a library that is broken does no
// harm.
//
// SPDX-License-Identifier: MIT

#include <groundwork/groundwork.h>
#include <groundwork/safe.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fuzz/support/check.h"
#include "fuzz/support/directory.h"
#include "fuzz/support/input.h"

namespace {

using Lines = std::vector<std::string>;

constexpr uid_t kUser = 4321;
constexpr int kMostOperations = 60;

// --- What is logged, by the library and by the plain code.

Lines logged;

int take_line(const char* line, void*) {
  const char* const message = std::strstr(line, "] ");
  REQUIRE(message != nullptr);
  logged.emplace_back(message + 2);
  return 0;
}

void log_plainly(const std::string& message) {
  logged.push_back(message);
}

std::string error_text() {
  return std::strerror(errno);
}

// --- Plain code.

std::vector<std::string> names_in(const std::string& path, bool* is_opened) {
  std::vector<std::string> names;
  DIR* const directory = opendir(path.c_str());
  *is_opened = directory != nullptr;
  if (directory == nullptr) return names;
  while (const struct dirent* const entry = readdir(directory)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  closedir(directory);
  return names;
}

bool opens(const std::string& path) {
  bool is_opened = false;
  names_in(path, &is_opened);
  return is_opened;
}

int plain_mkdir(const std::string& path) {
  if (mkdir(path.c_str(), 0755) == 0) return 0;
  for (size_t i = 1; i < path.size(); ++i) {
    if (path[i] != '/') continue;
    const std::string prefix = path.substr(0, i);
    if (mkdir(prefix.c_str(), 0755) == 0 || errno == EEXIST) continue;
    const int error = errno;
    log_plainly(error_text() + " - " + prefix + "(" + std::to_string(error) + ").");
    return -1;
  }
  return 0;
}

int plain_rmdir(const std::string& path) {
  bool is_opened = false;
  const std::vector<std::string> names = names_in(path, &is_opened);
  if (!is_opened) {
    log_plainly(error_text() + " - " + path);
    unlink(path.c_str());
    for (size_t i = 1; i < path.size(); ++i) {
      if (path[i] != '/' || opens(path.substr(0, i))) continue;
      unlink(path.substr(0, i).c_str());
      break;
    }
    return 0;
  }
  for (const std::string& name : names) {
    const std::string full = path + "/" + name;
    struct stat status;
    if (stat(full.c_str(), &status) != 0) {
      if (errno != ENOENT) log_plainly(error_text() + " - " + full + ".");
    } else if (S_ISDIR(status.st_mode)) {
      plain_rmdir(full);
    } else {
      unlink(full.c_str());
    }
  }
  const int result = rmdir(path.c_str());
  if (result != 0) unlink(path.c_str());
  return result;
}

using Visits = std::vector<std::string>;

int plain_scandir(const std::string& path, Visits* visits) {
  bool is_opened = false;
  int sum = 0;
  for (const std::string& name : names_in(path, &is_opened)) {
    const std::string full = path + (!path.empty() && path.back() == '/' ? "" : "/") + name;
    struct stat status;
    if (stat(full.c_str(), &status) != 0) continue;
    if (S_ISDIR(status.st_mode)) {
      plain_scandir(path + "/" + name, visits);
    } else {
      visits->push_back(full + " " + std::to_string(status.st_size));
      sum += static_cast<int>(visits->size());
    }
  }
  return sum;
}

// As the callback of the library: the number of visits so far is added.
int visit(const char* path, const struct stat64* status, void* data) {
  auto* const visits = static_cast<Visits*>(data);
  visits->push_back(std::string(path) + " " + std::to_string(status->st_size));
  return static_cast<int>(visits->size());
}

int plain_remove(const std::string& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) return -1;
  if (!S_ISDIR(status.st_mode)) return unlink(path.c_str());
  bool is_opened = false;
  for (const std::string& name : names_in(path, &is_opened))
    plain_remove(path + "/" + name);
  return rmdir(path.c_str());
}

bool is_directory(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

int plain_make(const std::string& path) {
  for (size_t i = 1; i <= path.size(); ++i) {
    if (i != path.size() && path[i] != '/') continue;
    const std::string prefix = path.substr(0, i);
    if (mkdir(prefix.c_str(), 0750) != 0 && !is_directory(prefix)) return -1;
  }
  return path.empty() ? -1 : 0;
}

std::string plain_content(const std::string& path) {
  return fuzz::read_file(path).value_or("");
}

int plain_copy(const std::string& from, const std::string& to) {
  const auto fails = [](const std::string& path) {
    log_plainly("can't open file '" + path + "' - " + error_text());
    return -1;
  };
  const int in = open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (in == -1) return fails(from);
  const int out = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  int result = 0;
  if (out == -1) {
    result = fails(to);
  } else {
    char block[8192];  // emptied first where both are one file
    ssize_t count;
    while ((count = read(in, block, sizeof block)) > 0) {
      REQUIRE(write(out, block, static_cast<size_t>(count)) == count);
    }
    close(out);
  }
  close(in);
  return result;
}

int plain_write(const std::string& path, const std::string& content) {
  if (content.empty()) {
    log_plainly("'len > 0' FAILED.");
    return -1;
  }
  const int out = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  if (out == -1) {
    log_plainly("can't open file '" + path + "' - " + error_text());
    return -1;
  }
  REQUIRE(write(out, content.data(), content.size()) ==
          static_cast<ssize_t>(content.size()));
  close(out);
  return 0;
}

bool is_regular_file(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

int64_t plain_size(const std::string& path) {
  struct stat status;
  return stat(path.c_str(), &status) == 0 ? status.st_size : -1;
}

int plain_unlink(const std::string& path) {
  if (unlink(path.c_str()) == 0) return 0;
  log_plainly(error_text() + " - " + path + ".");
  return -1;
}

int plain_rename(const std::string& from, const std::string& to) {
  if (rename(from.c_str(), to.c_str()) == 0) return 0;
  log_plainly(error_text() + " - (" + from + " -> " + to + ").");
  return -1;
}

int plain_touch(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0644);
  if (fd != -1) close(fd);
  return 0;
}

// --- The two trees.

std::string joined(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

// Every name below the current directory with all that can be seen of it.
void describe(const std::string& path, std::string* text) {
  bool is_opened = false;
  std::vector<std::string> names = names_in(path, &is_opened);
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    const std::string full = path + "/" + name;
    struct stat status;
    REQUIRE(lstat(full.c_str(), &status) == 0);
    *text += full + " " + std::to_string(status.st_mode);
    if (S_ISREG(status.st_mode)) *text += " '" + plain_content(full) + "'";
    if (S_ISLNK(status.st_mode)) {
      char target[200];
      const ssize_t length = readlink(full.c_str(), target, sizeof target);
      REQUIRE(length > 0);
      *text += " -> " + std::string(target, static_cast<size_t>(length));
    }
    *text += "\n";
    if (S_ISDIR(status.st_mode)) describe(full, text);
  }
}

class Trees {
 public:
  Trees() {
    for (const char* const name : {"ours", "twin"}) {
      REQUIRE(mkdir((directory_ / name).c_str(), 0755) == 0);
    }
    if (getuid() == 0) {
      for (const char* const name : {".", "ours", "twin"}) {
        REQUIRE(chown((directory_ / name).c_str(), kUser, kUser) == 0);
      }
    }
  }

  // Runs both in their trees and compares results and messages.
  template <typename Ours, typename Twin>
  void both(Ours ours, Twin twin) {
    enter("ours");
    logged.clear();
    const auto result = ours();
    Lines lines;
    lines.swap(logged);
    enter("twin");
    const auto expected = twin();
    REQUIRE_EQUAL(result, expected);
    REQUIRE_EQUAL(joined(lines), joined(logged));
  }

  void compare() const {
    std::string texts[2];
    enter("ours");
    describe(".", &texts[0]);
    enter("twin");
    describe(".", &texts[1]);
    REQUIRE_EQUAL(texts[0], texts[1]);
  }

  void clear() const {
    for (const char* const name : {"ours", "twin"}) {
      enter(name);
      bool is_opened = false;
      for (const std::string& entry : names_in(".", &is_opened)) plain_remove(entry);
    }
    REQUIRE(chdir("/") == 0);
  }

 private:
  void enter(const char* name) const { REQUIRE(chdir((directory_ / name).c_str()) == 0); }

  fuzz::Directory directory_;
};

// A path of a few short names, which leads nowhere but down.
std::string path_from(fuzz::Input& input) {
  const uint8_t shape = input.byte();
  std::string path;
  for (int i = 0; i <= shape % 4; ++i) {
    if (i != 0) path += (shape & 0x40) != 0 ? "//" : "/";
    path += std::string(1, static_cast<char>('a' + input.byte() % 4));
  }
  if ((shape & 0x10) != 0) path += '/';
  if ((shape & 0x20) != 0) path = "./" + path;
  return path;
}

std::string list_from(const std::string& path, int filter) {
  int count = -7;
  char** const names = g_dir_list(path.c_str(), filter, &count);
  if (names == nullptr) return "none " + std::to_string(count);
  std::string text = std::to_string(count);
  for (char** name = names; *name != nullptr; ++name) text += std::string(" ") + *name;
  g_dir_list_free(names);
  return text;
}

std::string plain_list(const std::string& path, int filter) {
  bool is_opened = false;
  std::vector<std::string> names = names_in(path, &is_opened);
  if (!is_opened) return "none -7";
  std::sort(names.begin(), names.end());
  std::string text;
  int count = 0;
  for (const std::string& name : names) {
    struct stat status;
    REQUIRE(lstat((path + "/" + name).c_str(), &status) == 0);
    const bool is_dir = S_ISDIR(status.st_mode);
    if ((filter == 1 && !is_dir) || (filter == 2 && is_dir)) continue;
    ++count;
    text += " " + name;
  }
  return std::to_string(count) + text;
}

std::string whole_file(const std::string& path) {
  int64_t length = -7;
  char* const content = g_file_read_buf(path.c_str(), &length);
  if (content == nullptr) return "none " + std::to_string(length);
  const std::string text(content, static_cast<size_t>(length));
  REQUIRE(content[length] == '\0');
  std::free(content);
  return "some " + text;
}

std::string plain_whole(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return "none -7";
  if (!S_ISREG(status.st_mode)) {
    log_plainly("can't read file '" + path + "'.");  // a directory cannot be read
    return "none -7";
  }
  return "some " + plain_content(path);
}

void make_something(fuzz::Input& input, const std::string& path, unsigned kind) {
  switch (kind) {
    case 0:
      if (mkdir(path.c_str(), 0755) == -1) return;
      break;
    case 1:
      if (symlink(path_from(input).c_str(), path.c_str()) == -1) return;
      break;
    default: {
      const int fd = open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0644);
      if (fd == -1) return;
      const std::string content(input.byte() * 70U, 'x');
      REQUIRE(write(fd, content.data(), content.size()) ==
              static_cast<ssize_t>(content.size()));
      close(fd);
    }
  }
}

// Operations 0 to 6, in steps of 20.
void use_directory(unsigned operation, const std::string& path, Trees& trees) {
  const char* const text = path.c_str();
  switch (operation % 20) {
    case 0:
      return trees.both(
          [&] {
            std::string writable = path;
            const int result = g_mkdir(writable.data());
            REQUIRE_EQUAL(writable, path);
            return result;
          },
          [&] { return plain_mkdir(path); });
    case 1:
      return trees.both([&] { return g_rmdir(text); }, [&] { return plain_rmdir(path); });
    case 2: {
      Visits ours;
      Visits twin;
      trees.both([&] { return g_scandir(text, visit, &ours); },
                 [&] { return plain_scandir(path, &twin); });
      REQUIRE(ours == twin);
      return;
    }
    case 3:
      return trees.both([&] { return list_from(path, operation % 4); },
                        [&] { return plain_list(path, operation % 4); });
    case 4:
      return trees.both([&] { return g_dir_exist(text); },
                        [&] { return is_directory(path) ? 1 : 0; });
    case 5:
      return trees.both([&] { return g_dir_make(text, 0750); },
                        [&] { return plain_make(path); });
    default: {
      // With a slash at the end only a directory itself is one.
      std::string bare = path;
      while (bare.back() == '/') bare.pop_back();
      return trees.both([&] { return g_dir_remove(bare.c_str()); },
                        [&] { return plain_remove(bare); });
    }
  }
}

// Operations 7 to 14, in steps of 20.
void use_file(fuzz::Input& input, unsigned operation, const std::string& path,
              Trees& trees) {
  const char* const text = path.c_str();
  switch (operation % 20) {
    case 7:
      return trees.both([&] { return g_file_exist(text); },
                        [&] { return is_regular_file(path) ? 1 : 0; });
    case 8:
      return trees.both([&] { return g_file_size(text); },
                        [&] { return plain_size(path); });
    case 9:
      return trees.both([&] { return whole_file(path); },
                        [&] { return plain_whole(path); });
    case 10: {
      const std::string content(input.byte(), 'w');
      return trees.both(
          [&] {
            return g_file_write_buf(text, content.data(),
                                    static_cast<int64_t>(content.size()));
          },
          [&] { return plain_write(path, content); });
    }
    case 11: {
      const std::string to = path_from(input);
      return trees.both([&] { return g_file_copy(text, to.c_str()); },
                        [&] { return plain_copy(path, to); });
    }
    case 12:
      return trees.both([&] { return g_file_remove(text); },
                        [&] { return plain_unlink(path); });
    case 13: {
      const std::string to = path_from(input);
      return trees.both([&] { return g_file_rename(text, to.c_str()); },
                        [&] { return plain_rename(path, to); });
    }
    default:
      return trees.both([&] { return g_file_touch(text); },
                        [&] { return plain_touch(path); });
  }
}

void run_operation(fuzz::Input& input, Trees& trees) {
  const unsigned operation = input.byte();
  const std::string path = path_from(input);
  if (operation % 20 < 7) return use_directory(operation, path, trees);
  if (operation % 20 < 15) return use_file(input, operation, path, trees);
  fuzz::Input twin_input = input;
  trees.both([&] { return make_something(input, path, operation % 3), 0; },
             [&] { return make_something(twin_input, path, operation % 3), 0; });
}

// An ordinary user for the time of an input.
class OrdinaryUser {
 public:
  OrdinaryUser() {
    if (getuid() == 0) REQUIRE(setegid(kUser) == 0 && seteuid(kUser) == 0);
  }
  ~OrdinaryUser() {
    if (getuid() == 0) REQUIRE(seteuid(0) == 0 && setegid(0) == 0);
  }
  OrdinaryUser(const OrdinaryUser&) = delete;
  OrdinaryUser& operator=(const OrdinaryUser&) = delete;
};

// The library prints what it cannot open. (musl's `stdout` cannot be set.)
class StandardOutputHidden {
 public:
  StandardOutputHidden() { point_to(nowhere_); }
  ~StandardOutputHidden() { point_to(own_); }
  StandardOutputHidden(const StandardOutputHidden&) = delete;
  StandardOutputHidden& operator=(const StandardOutputHidden&) = delete;

 private:
  static void point_to(int descriptor) {
    REQUIRE(std::fflush(stdout) == 0 && dup2(descriptor, STDOUT_FILENO) >= 0);
  }

  static inline const int nowhere_ = open("/dev/null", O_WRONLY | O_CLOEXEC);
  static inline const int own_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Trees trees;
  static char original_directory[4096];
  REQUIRE(getcwd(original_directory, sizeof original_directory) != nullptr);
  g_debug_set_level2(G_LOG_WARNING);
  g_debug_set_handler(take_line, nullptr);
  umask(022);
  {
    const StandardOutputHidden hidden;
    const OrdinaryUser user;
    fuzz::Input input(data, size);
    for (int i = 0; i < kMostOperations && !input.empty(); ++i) run_operation(input, trees);
    trees.compare();
    trees.clear();
  }
  g_debug_set_handler(nullptr, nullptr);
  REQUIRE(chdir(original_directory) == 0);
  return 0;
}
