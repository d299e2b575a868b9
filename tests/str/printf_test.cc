// SPDX-License-Identifier: MIT

#include <groundwork/str.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace {

TEST(StrdupPrintf, FormatsItsArguments) {
  char* const text = g_strdup_printf("%s=%d %5.2f|%-5d|%05x", "port", 80, 1.5, 7, 255);
  EXPECT_STREQ(text, "port=80  1.50|7    |000ff");
  std::free(text);
}

}  // namespace
