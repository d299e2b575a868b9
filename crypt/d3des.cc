// Single DES with combined S-box and permutation tables, with mirrored key bytes. Despite
// the name there is only one key and one pass.
//
// SPDX-License-Identifier: MIT

#include <groundwork/crypt.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "crypt/block_cipher.h"
#include "crypt/des_common.h"

using namespace groundwork::des;

namespace {

using SBoxTable = std::array<uint32_t, 64>;

// SP1 to SP8: the output of each S-box for its six input bits, in its place, permuted by P
// and rotated left by one bit like the halves.
constexpr std::array<SBoxTable, 8> kPermutedSBoxes = [] {
  std::array<SBoxTable, 8> tables{};
  for (unsigned box = 0; box < 8; ++box) {
    for (unsigned input = 0; input < 64; ++input) {
      const unsigned row = (input >> 4 & 2) | (input & 1);
      const unsigned column = input >> 1 & 15;
      const uint32_t value = kSBoxes[64 * box + 16 * row + column];
      tables[box][input] = std::rotl(permuted(value << (28 - 4 * box), kPermutation), 1);
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

// The round function: what is XORed into one half, computed from the other. Odd and even
// S-boxes see the half four bits apart; the mask leaves six bits in each byte.
uint32_t round_function(uint32_t half, const Subkey& subkey) {
  constexpr uint32_t kSixBits = 0x3F3F3F3F;
  const uint32_t odd = (std::rotr(half, 4) ^ subkey.odd) & kSixBits;
  const uint32_t even = (half ^ subkey.even) & kSixBits;
  const auto& sp = kPermutedSBoxes;
  return sp[6][odd & 255] ^ sp[4][odd >> 8 & 255] ^ sp[2][odd >> 16 & 255] ^
         sp[0][odd >> 24] ^ sp[7][even & 255] ^ sp[5][even >> 8 & 255] ^
         sp[3][even >> 16 & 255] ^ sp[1][even >> 24];
}

struct MirroredKeyCipher {
  using Subkey = groundwork::des::Subkey;

  static void expand(const Block& key, Schedule& schedule) {
    // Kept: the bits of each key byte are read starting with the lowest.
    expand_key(permuted_choice_1(mirrored(rows_of(key))), kRotations, schedule);
  }

  static Block transform(const Block& input, const Subkey* subkey, ptrdiff_t step) {
    auto [left, right] = initial_permutation(input);
    for (int pair = 0; pair < kRounds / 2; ++pair) {
      left ^= round_function(right, *subkey);
      right ^= round_function(left, subkey[step]);
      subkey += 2 * step;
    }
    return final_permutation({right, left});
  }
};

}  // namespace

extern "C" int g_crypt_d3des_encrypt(const void* input, void* output, const void* key) {
  return BlockCipher<MirroredKeyCipher>::encrypt(input, output, key);
}

extern "C" int g_crypt_d3des_decrypt(const void* input, void* output, const void* key) {
  return BlockCipher<MirroredKeyCipher>::decrypt(input, output, key);
}
