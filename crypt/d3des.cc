// Single DES with combined S-box and permutation tables, with mirrored key bytes. Despite
// the name there is only one key and one pass.
//
// SPDX-License-Identifier: MIT

#include <groundwork/crypt.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "core/built_for.h"
#include "crypt/block_cipher.h"
#include "crypt/des_common.h"

using namespace groundwork::des;

namespace {

using SBoxTable = std::array<uint32_t, 64>;

// How far the halves are rotated left during the rounds. Three bits put the six for an
// S-box at the high end of a byte, where they are the offset of an entry of 32 bits:
// processors that do not scale an index need no shift for a look-up.
constexpr int kHalfRotation = 3;

// SP1 to SP8: the output of each S-box for its six input bits, in its place, permuted by P
// and rotated like the halves.
constexpr std::array<SBoxTable, 8> kPermutedSBoxes = [] {
  std::array<SBoxTable, 8> tables{};
  for (unsigned box = 0; box < 8; ++box) {
    for (unsigned input = 0; input < 64; ++input) {
      const unsigned row = (input >> 4 & 2) | (input & 1);
      const unsigned column = input >> 1 & 15;
      const uint32_t value = kSBoxes[64 * box + 16 * row + column];
      tables[box][input] =
          std::rotl(permuted(value << (28 - 4 * box), kPermutation), kHalfRotation);
    }
  }
  return tables;
}();
static_assert(sizeof kPermutedSBoxes == 2048);

constexpr Rotations kRotations = [] {
  Rotations rotations{};
  for (unsigned i = 0; i < kRounds; ++i) {
    rotations[i] = static_cast<uint8_t>(kRotationTotals[i]);
  }
  return rotations;
}();

// The entry of a table at an offset in bytes.
uint32_t entry_at(const SBoxTable& table, uint32_t offset) {
  uint32_t entry;
  const char* const bytes = reinterpret_cast<const char*>(table.data()) + offset;
  std::memcpy(&entry, std::assume_aligned<alignof(uint32_t)>(bytes), sizeof entry);
  return entry;
}

// The round function: what is XORed into one half, computed from the other. Odd and even
// S-boxes see the half four bits apart; the mask leaves six bits of a byte.
IN_LINE_FOR_SPEED uint32_t round_function(uint32_t half, const Subkey& subkey) {
  constexpr uint32_t kSixBits = 0xFC;
  const uint32_t odd = std::rotr(half, 4) ^ subkey.odd;
  const uint32_t even = half ^ subkey.even;
  const auto& sp = kPermutedSBoxes;
  return entry_at(sp[6], odd & kSixBits) ^ entry_at(sp[4], odd >> 8 & kSixBits) ^
         entry_at(sp[2], odd >> 16 & kSixBits) ^ entry_at(sp[0], odd >> 24 & kSixBits) ^
         entry_at(sp[7], even & kSixBits) ^ entry_at(sp[5], even >> 8 & kSixBits) ^
         entry_at(sp[3], even >> 16 & kSixBits) ^ entry_at(sp[1], even >> 24 & kSixBits);
}

struct MirroredKeyCipher {
  using Subkey = groundwork::des::Subkey;

  static void expand(const Block& key, Schedule& schedule) {
    // Kept: the bits of each key byte are read starting with the lowest.
    expand_key(permuted_choice_1(mirrored(rows_of(key))), kRotations, schedule);
  }

  static Block transform(const Block& input, const Subkey* subkey, ptrdiff_t step) {
    // The permutations rotate by one bit of these.
    constexpr int kFurther = kHalfRotation - 1;
    auto [left, right] = initial_permutation(input);
    left = std::rotl(left, kFurther);
    right = std::rotl(right, kFurther);
    for (int pair = 0; pair < kRounds / 2; ++pair) {
      left ^= round_function(right, *subkey);
      right ^= round_function(left, subkey[step]);
      subkey += 2 * step;
    }
    return final_permutation({std::rotr(right, kFurther), std::rotr(left, kFurther)});
  }
};

}  // namespace

extern "C" int g_crypt_d3des_encrypt(const void* input, void* output, const void* key) {
  return BlockCipher<MirroredKeyCipher>::encrypt(input, output, key);
}

extern "C" int g_crypt_d3des_decrypt(const void* input, void* output, const void* key) {
  return BlockCipher<MirroredKeyCipher>::decrypt(input, output, key);
}
