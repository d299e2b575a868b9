// Directories, links, and chains of directories that may be deeper than any path reaches.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SYS_TREES_H
#define GROUNDWORK_TESTS_SYS_TREES_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace test {

inline void make_directory(const std::string& path) {
  ASSERT_EQ(mkdir(path.c_str(), 0755), 0) << path;
}

inline void make_link(const std::string& target, const std::string& path) {
  ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0) << path;
}

// Below `top` makes `levels` directories, each in the one before, and in the last a file.
inline void make_deep_tree(const std::string& top, int levels, const std::string& name,
                           const std::string& file) {
  int at = open(top.c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_NE(at, -1);
  for (int level = 0; level < levels; ++level) {
    ASSERT_EQ(mkdirat(at, name.c_str(), 0755), 0) << level;
    const int next = openat(at, name.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_NE(next, -1) << level;
    close(at);
    at = next;
  }
  const int made = openat(at, file.c_str(), O_CREAT | O_WRONLY, 0644);
  ASSERT_NE(made, -1);
  close(made);
  close(at);
}

// Removes a tree whose paths are too long for anything else; a descriptor for each level.
inline void remove_entries(int directory) {
  DIR* const stream = fdopendir(dup(directory));
  ASSERT_NE(stream, nullptr);
  std::vector<std::string> names;
  while (const struct dirent64* const entry = readdir64(stream)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  closedir(stream);
  for (const std::string& name : names) {
    if (unlinkat(directory, name.c_str(), 0) == 0) continue;
    const int sub = openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    ASSERT_NE(sub, -1) << name;
    remove_entries(sub);
    close(sub);
    unlinkat(directory, name.c_str(), AT_REMOVEDIR);
  }
}

inline void remove_deep_tree(const std::string& top) {
  const int directory = open(top.c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_NE(directory, -1);
  remove_entries(directory);
  close(directory);
  rmdir(top.c_str());
}

}  // namespace test

#endif
