// Power cuts by simulation: the configuration.
//
// SPDX-License-Identifier: MIT

#include <groundwork/conf.h>
#include <groundwork/safe.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "crash/saver.h"

using namespace crash;
using test::TemporaryDirectory;

namespace {

std::string configuration() {
  std::string text = "# a comment\n[net]\n";
  for (int i = 0; i < 300; ++i) text += "key" + std::to_string(i) + "=value\n";
  return text;
}

// A value changes, and `save` writes it.
template <typename Save>
Recording recording_of_save(const Scene& scene, Save save) {
  return recording_of(
      [&](const TemporaryDirectory& directory) {
        GConf* const conf = g_conf_open((directory / "f").c_str());
        ASSERT_NE(conf, nullptr);
        g_conf_write_string(conf, "net", "key1", "another value");
        save(conf);
        g_conf_close(conf);
      },
      scene);
}

void save_safely(GConf* conf) {
  EXPECT_EQ(g_conf_save(conf, 0), 0);
}

}  // namespace

TEST(PowerCut, SavedConfigurationIsOldOrNew) {
  expect_safe("g_conf_save",
              recording_of_save({.old_content = configuration()}, save_safely));
}

TEST(PowerCut, FreshConfigurationIsAbsentOrWhole) {
  expect_safe("g_conf_save, a fresh file",
              recording_of_save({.is_fresh = true}, save_safely));
}

// Kept: callers rely on the file being written in place, emptied first and never synced.
// What that costs is counted here, next to the savers that lose nothing.
TEST(PowerCut, SyncedConfigurationIsLostInSomeStates) {
  const Recording recording =
      recording_of_save({.old_content = configuration()}, g_conf_sync);
  const Figures figures = examine_all("g_conf_sync", recording, {.target = "f"});
  EXPECT_GT(figures.bad, 0);
  std::printf("  e.g. %s\n", figures.example.c_str());
}
