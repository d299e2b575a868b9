// What the tests of saving and reloading share.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_SAFE_CONF_SUPPORT_H
#define GROUNDWORK_TESTS_SAFE_CONF_SUPPORT_H

#include <groundwork/safe.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "conf/conf_support.h"

namespace test {

inline void set(GConf* conf, const char* section, const char* key, const char* value) {
  g_conf_write_string(conf, section, key, value);
}

// The keys of a conf in no particular order, names in lower case: what reading shows.
using Readings = std::vector<std::tuple<std::string, std::string, std::string>>;

inline std::string lower(std::string text) {
  for (char& byte : text) {
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte + 'a' - 'A');
  }
  return text;
}

inline Readings readings(const GConf* conf) {
  Readings all;
  for (const auto& [section, keys] : content(conf)) {
    for (const auto& [key, value] : keys)
      all.emplace_back(lower(section), lower(key), value);
  }
  std::sort(all.begin(), all.end());
  return all;
}

// What the file's text becomes by a change of the conf and a save. The text that results
// loads as the conf.
template <typename Change>
std::string saved(std::string_view text, Change change, int force = 0) {
  const ConfFile file(text);
  const Conf conf = file.open();
  change(conf.get());
  EXPECT_EQ(conf->dirty, 1);
  EXPECT_EQ(g_conf_save(conf.get(), force), 0);
  EXPECT_EQ(conf->dirty, 0);
  EXPECT_EQ(readings(file.open().get()), readings(conf.get()));
  return file.text();
}

// A save that must fail: the file stays as it is, the conf dirty, and nothing is logged.
inline void expect_refused(GConf* conf, int error, int force = 0) {
  LogCapture log;
  const std::string before = read_file(conf->filename);
  errno = 0;
  EXPECT_EQ(g_conf_save(conf, force), -1);
  EXPECT_EQ(errno, error);
  EXPECT_EQ(conf->dirty, 1);
  EXPECT_EQ(read_file(conf->filename), before);
  EXPECT_EQ(log.take(), Lines{});
}

}  // namespace test

#endif
