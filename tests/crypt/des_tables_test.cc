// SPDX-License-Identifier: MIT

#include <groundwork/des_tables.h>
#include <gtest/gtest.h>

#include <iterator>
#include <type_traits>
#include <vector>

#include "crypt/des_model.h"

namespace {

template <typename Table>
std::vector<int> values(const Table& table) {
  return {std::begin(table), std::end(table)};
}

TEST(DesTables, HaveTheirTypes) {
  EXPECT_TRUE((std::is_same<decltype(ip), const int32_t[64]>::value));
  EXPECT_TRUE((std::is_same<decltype(fp), const int32_t[64]>::value));
  EXPECT_TRUE((std::is_same<decltype(e), const int32_t[48]>::value));
  EXPECT_TRUE((std::is_same<decltype(pc1), const int32_t[56]>::value));
  EXPECT_TRUE((std::is_same<decltype(pc2), const int32_t[48]>::value));
  EXPECT_TRUE((std::is_same<decltype(p32), const int32_t[32]>::value));
  EXPECT_TRUE((std::is_same<decltype(rotate), const int32_t[16]>::value));
  EXPECT_EQ(sizeof s_box, 512u);
}

TEST(DesTables, HoldWhatTheStandardPrints) {
  EXPECT_EQ(values(ip), test::kModelIp);
  EXPECT_EQ(values(fp), test::kModelFp);
  EXPECT_EQ(values(e), test::kModelE);
  EXPECT_EQ(values(pc1), test::kModelPc1);
  EXPECT_EQ(values(pc2), test::kModelPc2);
  EXPECT_EQ(values(p32), test::kModelP);
}

TEST(DesTables, HoldTheSBoxesRowByRowOneByteForEachEntry) {
  for (int box = 0; box < 8; ++box) {
    for (int at = 0; at < 64; ++at) {
      const char digit = test::kModelSBoxes[box][at];
      EXPECT_EQ(s_box[64 * box + at], digit <= '9' ? digit - '0' : digit - 'A' + 10)
          << "box " << box + 1 << ", entry " << at;
    }
  }
}

TEST(DesTables, RotateHoldsTotalsAndNotTheShiftsOfEachRound) {
  EXPECT_EQ(values(rotate),
            (std::vector<int>{1, 2, 4, 6, 8, 10, 12, 14, 15, 17, 19, 21, 23, 25, 27, 28}));
}

}  // namespace
