// SPDX-License-Identifier: MIT

#include "support/temporary_directory.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include <ftw.h>
#include <unistd.h>

namespace {

int remove_entry(const char* path, const struct stat*, int, struct FTW*) {
  return remove(path);
}

}  // namespace

namespace test {

TemporaryDirectory::TemporaryDirectory() {
  const char* const base = std::getenv("TMPDIR");
  path_ = std::string(base != nullptr ? base : "/tmp") + "/groundwork-test-XXXXXX";
  if (mkdtemp(path_.data()) == nullptr) {
    ADD_FAILURE() << "mkdtemp " << path_;
  }
}

TemporaryDirectory::~TemporaryDirectory() {
  nftw(path_.c_str(), remove_entry, 64, FTW_DEPTH | FTW_PHYS);
}

std::string TemporaryDirectory::operator/(std::string_view name) const {
  return path_ + "/" + std::string(name);
}

std::string TemporaryDirectory::write(std::string_view name,
                                      std::string_view content) const {
  const std::string path = *this / name;
  std::ofstream file(path, std::ios::binary);
  file << content;
  file.close();
  EXPECT_TRUE(file.good()) << path;
  return path;
}

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace test
