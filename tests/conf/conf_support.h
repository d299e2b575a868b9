// What the tests of the configuration store share.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_CONF_CONF_SUPPORT_H
#define GROUNDWORK_TESTS_CONF_CONF_SUPPORT_H

#include <groundwork/conf.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/log_capture.h"
#include "support/temporary_directory.h"

namespace test {

using Lines = std::vector<std::string>;
using Keys = std::vector<std::pair<std::string, std::string>>;
using Sections = std::vector<std::pair<std::string, Keys>>;

struct CloseConf {
  void operator()(GConf* conf) const { EXPECT_EQ(g_conf_close(conf), 0); }
};
// Closes the conf, and so writes its file, at the end of the scope.
using Conf = std::unique_ptr<GConf, CloseConf>;

// A conf of a file in a directory of its own.
class ConfFile {
 public:
  // No file yet.
  ConfFile() : path_(directory_ / "test.conf") {}
  explicit ConfFile(std::string_view text) : path_(directory_.write("test.conf", text)) {}

  Conf open() const {
    Conf conf(g_conf_open(path_.c_str()));
    EXPECT_NE(conf, nullptr);
    return conf;
  }
  const std::string& path() const { return path_; }
  std::string text() const { return read_file(path_); }
  bool exists() const { return access(path_.c_str(), F_OK) == 0; }
  void rewrite(std::string_view text) const {
    remove();
    directory_.write("test.conf", text);
  }
  const TemporaryDirectory& directory() const { return directory_; }
  void remove() const { std::remove(path_.c_str()); }

 private:
  TemporaryDirectory directory_;
  std::string path_;
};

// The keys of a section in list order; checks the links of the list on the way.
inline Keys keys_of(const GConfSection* section) {
  Keys keys;
  const GList* before = nullptr;
  for (const GList* node = section->entries; node != nullptr; node = node->next) {
    EXPECT_EQ(node->prev, before);
    before = node;
    const auto* const entry = static_cast<const GConfEntry*>(node->data);
    keys.emplace_back(entry->key, entry->value);
  }
  return keys;
}

inline Sections content(const GConf* conf) {
  Sections sections;
  const GList* before = nullptr;
  for (const GList* node = conf->sections; node != nullptr; node = node->next) {
    EXPECT_EQ(node->prev, before);
    before = node;
    const auto* const section = static_cast<const GConfSection*>(node->data);
    sections.emplace_back(section->name, keys_of(section));
  }
  return sections;
}

// What a text loads as.
inline Sections loaded(std::string_view text) {
  const ConfFile file(text);
  const Conf conf = file.open();
  EXPECT_EQ(conf->dirty, 0);
  return content(conf.get());
}

// Runs the steps in a process of their own: for what holds for the life of a process.
template <typename Steps>
void in_child(Steps steps) {
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    steps();
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
}

}  // namespace test

#endif
