// A variant of DES with two deviations that stored data depends on: the rotations of the
// key schedule are totals but added up again, and an S-box look-up uses only three of its
// six bits, so that the bits select the S-box, and not its position.
//
// A look-up has only eight possible results, the same for every position, and each bit of a
// half is used in at most one look-up. So a half combines with a round's key as one word,
// two look-ups share a table access, and four accesses make a round.
//
// SPDX-License-Identifier: MIT

#include <groundwork/crypt.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "core/built_for.h"
#include "crypt/block_cipher.h"
#include "crypt/des_common.h"

using namespace groundwork::des;

namespace {

// Of the six bits x0 to x5 that the expansion assigns to group g of four bits, x0, x2 and
// x5 are used. Rotated left by one bit, as initial_permutation() leaves it, a half has x2
// of group g at bit 4g, x5 at bit 4g + 3, and x0 of group g + 1 at bit 4g + 2. With these
// last ones moved to their own group, the four bits of a group are x2, none, x0, x5.
constexpr uint32_t kUsedBits = 0xBBBBBBBB;
constexpr uint32_t kMovedBits = 0x22222222;

constexpr uint32_t gathered(uint32_t half) {
  return (half & ~kMovedBits) | std::rotr(half & kMovedBits, 4);
}

constexpr uint32_t scattered(uint32_t half) {
  return (half & ~kMovedBits) | std::rotl(half & kMovedBits, 4);
}

// The S-box output for a group of gathered bits.
constexpr uint32_t sbox_output(unsigned group) {
  const unsigned x0 = group >> 1 & 1;
  const unsigned x2 = group >> 3 & 1;
  const unsigned x5 = group & 1;
  // Kept: the column is x2 four times, and the row selects the S-box instead of its row.
  const unsigned row = 2 * x0 + x5;
  const unsigned column = 15 * x2;
  return kSBoxes[64 * row + column];
}

// What the two groups of a byte contribute to a gathered half. Four tables in one, one for
// each byte: the two bits of an index that no look-up uses select the table.
constexpr unsigned kTableOf[4] = {0x00, 0x04, 0x40, 0x44};  // by byte, from the top

constexpr std::array<uint32_t, 256> kRoundTable = [] {
  std::array<uint32_t, 256> table{};
  for (unsigned byte = 0; byte < 4; ++byte) {
    for (unsigned index = 0; index < 256; ++index) {
      if ((index & 0x44) != kTableOf[byte]) continue;
      const uint32_t value = sbox_output(index >> 4) << 4 | sbox_output(index & 15);
      const uint32_t half = permuted(value << (24 - 8 * byte), kPermutation);
      table[index] = gathered(std::rotl(half, 1));
    }
  }
  return table;
}();

// Kept: the totals, which in the standard apply to the permuted key, are applied one after
// another, so that they add up a second time.
constexpr Rotations kRotations = [] {
  Rotations rotations{};
  int32_t total = 0;
  for (unsigned i = 0; i < kRounds; ++i) {
    total += kRotationTotals[i];
    rotations[i] = static_cast<uint8_t>(total % 28);
  }
  return rotations;
}();
static_assert(kRotations ==
              Rotations{1, 3, 7, 13, 21, 3, 15, 1, 16, 5, 24, 17, 12, 9, 8, 8});

// The bits of a subkey that are used. In the bytes of a subkey, x0 to x5 are bits 7 to 2.
uint32_t gathered(const Subkey& subkey) {
  constexpr uint32_t kX0 = 0x80808080;
  constexpr uint32_t kX2AndX5 = 0x24242424;
  const auto [odd, even] = subkey;
  return ((odd & kX0) | (even & kX2AndX5)) >> 2 | (odd & kX2AndX5) << 2 | (even & kX0) >> 6;
}

// The round function: what is XORed into one half, computed from the other.
IN_LINE_FOR_SPEED uint32_t round_function(uint32_t half, uint32_t subkey) {
  const uint32_t bits = (half ^ subkey) & kUsedBits;
  return kRoundTable[kTableOf[0] + (bits >> 24)] ^
         kRoundTable[kTableOf[1] + (bits >> 16 & 255)] ^
         kRoundTable[kTableOf[2] + (bits >> 8 & 255)] ^
         kRoundTable[kTableOf[3] + (bits & 255)];
}

struct TotalsCipher {
  using Subkey = uint32_t;  // x0, x2 and x5, gathered as in a half

  static void expand(const Block& key, std::array<Subkey, kRounds>& subkeys) {
    Schedule schedule;
    expand_key(permuted_choice_1(rows_of(key)), kRotations, schedule);
    for (unsigned i = 0; i < kRounds; ++i) subkeys[i] = gathered(schedule[i]);
  }

  static Block transform(const Block& input, const Subkey* subkey, ptrdiff_t step) {
    auto [left, right] = initial_permutation(input);
    left = gathered(left);
    right = gathered(right);
    for (int pair = 0; pair < kRounds / 2; ++pair) {
      left ^= round_function(right, *subkey);
      right ^= round_function(left, subkey[step]);
      subkey += 2 * step;
    }
    return final_permutation({scattered(right), scattered(left)});
  }
};

}  // namespace

extern "C" int g_crypt_des_encrypt(const void* input, void* output, const void* key) {
  return BlockCipher<TotalsCipher>::encrypt(input, output, key);
}

extern "C" int g_crypt_des_decrypt(const void* input, void* output, const void* key) {
  return BlockCipher<TotalsCipher>::decrypt(input, output, key);
}
