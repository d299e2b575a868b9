// A directory of a test's own.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SUPPORT_TEMPORARY_DIRECTORY_H
#define GROUNDWORK_TESTS_SUPPORT_TEMPORARY_DIRECTORY_H

#include <string>
#include <string_view>

namespace test {

// Created empty under $TMPDIR, or else in memory or /tmp; removed with all it holds.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }
  // The path of a name in the directory.
  std::string operator/(std::string_view name) const;
  // Writes a file there and returns its path.
  std::string write(std::string_view name, std::string_view content) const;

 private:
  std::string path_;
};

// The whole content of a file; fails the test when it cannot be read.
std::string read_file(const std::string& path);

}  // namespace test

#endif
