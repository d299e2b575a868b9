// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/package.h>
#include <gtest/gtest.h>

#include "support/log_capture.h"

using test::check_line;
using test::LogCapture;
using Lines = std::vector<std::string>;

namespace {

TEST(PackageName, IsEmptyAtLoadAndHas21Bytes) {
  EXPECT_STREQ(g_package_name, "");
  EXPECT_EQ(sizeof g_package_name, 21u);
}

TEST(PackageSetName, StoresTheNameAndReturnsTheArray) {
  LogCapture log;
  EXPECT_EQ(g_package_set_name("app"), g_package_name);
  EXPECT_STREQ(g_package_name, "app");
  EXPECT_EQ(log.take(), Lines{});
}

TEST(PackageSetName, CutsAfterTwentyCharactersAndLogLinesBeginWithThem) {
  LogCapture log;
  g_package_set_name("abcdefghijklmnopqrstuvwxy");
  EXPECT_STREQ(g_package_name, "abcdefghijklmnopqrst");
  g_log(4, "src", 1, "text");
  EXPECT_EQ(log.take(), Lines{"abcdefghijklmnopqrst: src:1: [CRITICAL] text"});
}

TEST(PackageSetName, AShorterNameLeavesNothingOfTheLonger) {
  LogCapture log;
  g_package_set_name("abcdefghij");
  g_package_set_name("xy");
  EXPECT_STREQ(g_package_name, "xy");
  g_package_set_name("");
  EXPECT_STREQ(g_package_name, "");
}

TEST(PackageSetName, MayBeGivenTheArrayItself) {
  LogCapture log;
  g_package_set_name("abcdefghijklmnopqrst");
  g_package_set_name(g_package_name);
  EXPECT_STREQ(g_package_name, "abcdefghijklmnopqrst");
  g_package_set_name(g_package_name + 3);
  EXPECT_STREQ(g_package_name, "defghijklmnopqrst");
}

TEST(PackageSetName, NullReportsTheCheckAndChangesNothing) {
  LogCapture log;
  g_package_set_name("app");
  EXPECT_EQ(g_package_set_name(nullptr), nullptr);
  const Lines lines = log.take();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(lines[0].rfind("app: g_package:", 0) == 0) << lines[0];
  EXPECT_NE(lines[0].find(": [CRITICAL] 'name != NULL' FAILED."), std::string::npos);
  EXPECT_STREQ(g_package_name, "app");
}

}  // namespace
