// Key schedule of the DES family, and proofs that the fast permutations are those of the
// standard's tables.
//
// SPDX-License-Identifier: MIT

#include "crypt/des_common.h"

using namespace groundwork::des;

namespace {

// PC-2 for seven bits of C or D at a time: windows 0 to 3 are for C, the others for D. An
// entry holds what its bits contribute to a subkey, packed: the bytes of the odd S-boxes in
// its upper half, those of the even ones in its lower half. C feeds only S1 to S4 and D the
// others, so 16 bits are enough for each.
constexpr int kWindows = 8;
constexpr int kWindowBits = 7;
constexpr int kWindowSize = 1 << kWindowBits;

using Windows = std::array<std::array<uint32_t, kWindowSize>, kWindows>;

constexpr uint32_t packed_bit(int selected) {
  const int s_box = selected / 6 % 4;  // of C's four, or D's
  const int byte = s_box / 2;          // from the top of its half
  const int bit = selected % 6;
  return uint32_t{1} << ((s_box % 2 == 0 ? 16 : 0) + (byte == 0 ? 8 : 0) + 7 - bit);
}

constexpr Windows kPermutedChoice2Windows = [] {
  Windows windows{};
  for (int selected = 0; selected < 48; ++selected) {
    const int source = kPermutedChoice2[static_cast<unsigned>(selected)] - 1;
    auto& window = windows[static_cast<unsigned>(source / kWindowBits)];
    const unsigned mask = 1u << (kWindowBits - 1 - source % kWindowBits);
    for (unsigned value = 0; value < kWindowSize; ++value) {
      if ((value & mask) != 0) window[value] |= packed_bit(selected);
    }
  }
  return windows;
}();
static_assert(sizeof kPermutedChoice2Windows == 4096);

// Rotates 28 bits left; the bits above them in the result are meaningless.
uint32_t rotated(uint32_t half, unsigned count) {
  return half << count | half >> (28 - count);
}

uint32_t select(uint32_t half, unsigned first_window) {
  const auto* const window = &kPermutedChoice2Windows[first_window];
  return window[0][half >> 21 & 127] | window[1][half >> 14 & 127] |
         window[2][half >> 7 & 127] | window[3][half & 127];
}

constexpr bool follows_the_initial_permutation() {
  for (int i = 0; i < 64; ++i) {
    const int source = kInitialPermutation[static_cast<unsigned>(i)] - 1;
    Block expected = single_bit(i);
    expected = {std::rotl(expected.left, 1), std::rotl(expected.right, 1)};
    if (initial_permutation(single_bit(source)) != expected) return false;
  }
  return true;
}
static_assert(follows_the_initial_permutation());

constexpr bool follows_the_final_permutation() {
  for (int i = 0; i < 64; ++i) {
    const int source = kFinalPermutation[static_cast<unsigned>(i)] - 1;
    Block half = single_bit(source);
    half = {std::rotl(half.left, 1), std::rotl(half.right, 1)};
    if (final_permutation(half) != single_bit(i)) return false;
  }
  return true;
}
static_assert(follows_the_final_permutation());

// Every key bit goes where the table says, and bits that it leaves out go nowhere. The same
// holds for the bit at the opposite end of its byte after mirroring.
constexpr bool follows_permuted_choice_1() {
  for (int bit = 0; bit < 64; ++bit) {
    KeyHalves expected{};
    for (int i = 0; i < 56; ++i) {
      if (kPermutedChoice1[static_cast<unsigned>(i)] - 1 != bit) continue;
      (i < 28 ? expected.c : expected.d) |= uint32_t{1} << (27 - i % 28);
    }
    const int opposite = bit / 8 * 8 + 7 - bit % 8;
    if (permuted_choice_1(rows_of(single_bit(bit))) != expected) return false;
    if (permuted_choice_1(mirrored(rows_of(single_bit(opposite)))) != expected)
      return false;
  }
  return true;
}
static_assert(follows_permuted_choice_1());

}  // namespace

void groundwork::des::expand_key(const KeyHalves& key, const Rotations& rotations,
                                 Schedule& schedule) {
  for (unsigned round = 0; round < kRounds; ++round) {
    const uint32_t c = select(rotated(key.c, rotations[round]), 0);
    const uint32_t d = select(rotated(key.d, rotations[round]), 4);
    schedule[round] = {(c & 0xFFFF0000) | d >> 16, c << 16 | (d & 0x0000FFFF)};
  }
}
