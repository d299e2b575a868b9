// What the two ciphers of the DES family share: blocks as two words, the initial and the
// final permutation, and the key schedule.
//
// Bits are numbered from the most significant, as in the standard: bit 0 of a block is the
// top bit of its left word.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CRYPT_DES_COMMON_H
#define GROUNDWORK_CRYPT_DES_COMMON_H

#include <array>
#include <bit>
#include <cstdint>

#include "core/word.h"
#include "crypt/des_standard.h"

namespace groundwork::des {

struct Block {
  uint32_t left;
  uint32_t right;

  bool operator==(const Block&) const = default;
};

inline Block load_block(const void* bytes) {
  const char* const right = static_cast<const char*>(bytes) + sizeof(uint32_t);
  return {big_endian(load_word(bytes)), big_endian(load_word(right))};
}

inline void store_block(void* bytes, const Block& block) {
  store_word(bytes, big_endian(block.left));
  store_word(static_cast<char*>(bytes) + sizeof(uint32_t), big_endian(block.right));
}

// Exchanges the bits of `high` that are `distance` bits above `mask` with the bits of `low`
// under `mask`.
constexpr void exchange(uint32_t& high, uint32_t& low, int distance, uint32_t mask) {
  const uint32_t difference = ((high >> distance) ^ low) & mask;
  low ^= difference;
  high ^= difference << distance;
}

// Exchanges the bits of both words under `mask`.
constexpr void exchange(uint32_t& left, uint32_t& right, uint32_t mask) {
  const uint32_t difference = (left ^ right) & mask;
  left ^= difference;
  right ^= difference;
}

// IP, then both halves rotated left by one bit: this puts the six bits for an S-box into
// one byte, for every other S-box immediately, and for the rest after a rotation by four.
constexpr Block initial_permutation(Block block) {
  auto& [left, right] = block;
  exchange(left, right, 4, 0x0F0F0F0F);
  exchange(left, right, 16, 0x0000FFFF);
  exchange(right, left, 2, 0x33333333);
  exchange(right, left, 8, 0x00FF00FF);
  right = std::rotl(right, 1);
  exchange(left, right, 0xAAAAAAAA);
  left = std::rotl(left, 1);
  return block;
}

// Undoes initial_permutation().
constexpr Block final_permutation(Block block) {
  auto& [left, right] = block;
  left = std::rotr(left, 1);
  exchange(left, right, 0xAAAAAAAA);
  right = std::rotr(right, 1);
  exchange(right, left, 8, 0x00FF00FF);
  exchange(right, left, 2, 0x33333333);
  exchange(left, right, 16, 0x0000FFFF);
  exchange(left, right, 4, 0x0F0F0F0F);
  return block;
}

// The key bits C and D, 28 in the low bits of each word.
struct KeyHalves {
  uint32_t c;
  uint32_t d;

  bool operator==(const KeyHalves&) const = default;
};

// A key's bytes as columns, the last byte first: rows 0, 2, 4 and 6 of bits in the right
// word, rows 1, 3, 5 and 7 in the left one. This is the result of IP.
constexpr Block rows_of(const Block& key) {
  const Block permuted = initial_permutation(key);
  return {std::rotr(permuted.left, 1), std::rotr(permuted.right, 1)};
}

// The rows of the key with the bits of each byte mirrored: the same rows, upside down.
constexpr Block mirrored(const Block& rows) {
  return {__builtin_bswap32(rows.right), __builtin_bswap32(rows.left)};
}

// PC-1, which takes whole rows, except the fourth, which it splits in halves.
constexpr KeyHalves permuted_choice_1(const Block& rows) {
  const auto [left, right] = rows;
  return {(right & 0xFF000000) >> 4 | (left & 0xFF000000) >> 12 |
              (right & 0x00FF0000) >> 12 | (left & 0x00F00000) >> 20,
          (right & 0x000000FF) << 20 | (left & 0x0000FF00) << 4 |
              (right & 0x0000FF00) >> 4 | (left & 0x000F0000) >> 16};
}

// The 48 bits of PC-2 for one round, preprocessed: six bits at the high end of each byte,
// those of S1, S3, S5 and S7 in `odd` from the top byte down, those of S2, S4, S6 and S8 in
// `even`.
struct Subkey {
  uint32_t odd;
  uint32_t even;
};

constexpr int kRounds = 16;

using Schedule = std::array<Subkey, kRounds>;
using Rotations = std::array<uint8_t, kRounds>;

// Computes the schedule of a key whose halves are rotated left by `rotations[i]`, at most
// 28, in round i.
void expand_key(const KeyHalves& key, const Rotations& rotations, Schedule& schedule);

// The following are for tables and proofs at compile time.

// Bit `index` of a word, counted from the most significant.
constexpr uint32_t bit_of(uint32_t word, int index) {
  return word >> (31 - index) & 1;
}

constexpr Block single_bit(int index) {
  return {index < 32 ? 0x80000000 >> index : 0,
          index < 32 ? 0 : 0x80000000 >> (index - 32)};
}

// The bits of a word as a table of the standard selects them.
constexpr uint32_t permuted(uint32_t word, const std::array<int32_t, 32>& table) {
  uint32_t result = 0;
  for (const int32_t position : table) result = result << 1 | bit_of(word, position - 1);
  return result;
}

}  // namespace groundwork::des

#endif
