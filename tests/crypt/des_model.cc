// SPDX-License-Identifier: MIT

#include "crypt/des_model.h"

#include <cstddef>

namespace test {

// clang-format off
const std::vector<int> kModelIp = {
    58,50,42,34,26,18,10,2, 60,52,44,36,28,20,12,4,
    62,54,46,38,30,22,14,6, 64,56,48,40,32,24,16,8,
    57,49,41,33,25,17,9,1,  59,51,43,35,27,19,11,3,
    61,53,45,37,29,21,13,5, 63,55,47,39,31,23,15,7};
const std::vector<int> kModelFp = {
    40,8,48,16,56,24,64,32, 39,7,47,15,55,23,63,31,
    38,6,46,14,54,22,62,30, 37,5,45,13,53,21,61,29,
    36,4,44,12,52,20,60,28, 35,3,43,11,51,19,59,27,
    34,2,42,10,50,18,58,26, 33,1,41,9,49,17,57,25};
const std::vector<int> kModelE = {
    32,1,2,3,4,5, 4,5,6,7,8,9, 8,9,10,11,12,13, 12,13,14,15,16,17,
    16,17,18,19,20,21, 20,21,22,23,24,25, 24,25,26,27,28,29, 28,29,30,31,32,1};
const std::vector<int> kModelP = {
    16,7,20,21,29,12,28,17, 1,15,23,26,5,18,31,10,
    2,8,24,14,32,27,3,9, 19,13,30,6,22,11,4,25};
const std::vector<int> kModelPc1 = {
    57,49,41,33,25,17,9, 1,58,50,42,34,26,18, 10,2,59,51,43,35,27, 19,11,3,60,52,44,36,
    63,55,47,39,31,23,15, 7,62,54,46,38,30,22, 14,6,61,53,45,37,29, 21,13,5,28,20,12,4};
const std::vector<int> kModelPc2 = {
    14,17,11,24,1,5, 3,28,15,6,21,10, 23,19,12,4,26,8, 16,7,27,20,13,2,
    41,52,31,37,47,55, 30,40,51,45,33,48, 44,49,39,56,34,53, 46,42,50,36,29,32};
const char* const kModelSBoxes[8] = {
    "E4D12FB83A6C5907" "0F74E2D1A6CB9538" "41E8D62BFC973A50" "FC8249175B3EA06D",
    "F18E6B34972DC05A" "3D47F28EC01A69B5" "0E7BA4D158C6932F" "D8A13F42B67C05E9",
    "A09E63F51DC7B428" "D709346A285ECBF1" "D6498F30B12C5AE7" "1AD069874FE3B52C",
    "7DE3069A1285BC4F" "D8B56F03472C1AE9" "A690CB7DF13E5284" "3F06A1D8945BC72E",
    "2C417AB6853FD0E9" "EB2C47D150FA3986" "421BAD78F9C5630E" "B8C71E2D6F09A453",
    "C1AF92680D34E75B" "AF427C9561DE0B38" "9EF528C3704A1DB6" "432C95FABE17608D",
    "4B2EF08D3C975A61" "D0B7491AE35C2F86" "14BDC37EAF680592" "6BD814A7950FE23C",
    "D2846FB1A93E50C7" "1FD8A374C56B0E92" "7B419CE206ADF358" "21E74A8DFC90356B"};
// clang-format on

namespace {

using Bits = std::vector<int>;

Bits bits_of(const Bytes8& bytes) {
  Bits bits;
  for (const int byte : bytes) {
    for (int bit = 7; bit >= 0; --bit) bits.push_back(byte >> bit & 1);
  }
  return bits;
}

Bytes8 bytes_of(const Bits& bits) {
  Bytes8 bytes{};
  for (size_t i = 0; i < 64; ++i) {
    bytes[i / 8] = static_cast<uint8_t>(bytes[i / 8] * 2 + bits[i]);
  }
  return bytes;
}

Bits permuted(const Bits& bits, const std::vector<int>& table) {
  Bits result;
  for (const int position : table)
    result.push_back(bits[static_cast<size_t>(position - 1)]);
  return result;
}

Bits part(const Bits& bits, int from, int count) {
  return {bits.begin() + from, bits.begin() + from + count};
}

Bits joined(Bits first, const Bits& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bits combined(Bits bits, const Bits& others) {
  for (size_t i = 0; i < bits.size(); ++i) bits[i] ^= others[i];
  return bits;
}

Bits rotated(Bits bits, int count) {
  for (; count > 0; --count) {
    bits.push_back(bits.front());
    bits.erase(bits.begin());
  }
  return bits;
}

int digit(char c) {
  return c <= '9' ? c - '0' : c - 'A' + 10;
}

struct Rules {
  std::array<int, 16> shifts;  // of each round, on top of the rounds before
  int (*lookup)(int group, const Bits& x);
};

const Rules kStandard = {
    {1, 1, 2, 2, 2, 2, 2, 2, 1, 2, 2, 2, 2, 2, 2, 1},
    [](int group, const Bits& x) {
      const int row = 2 * x[0] + x[5];
      const int column = 8 * x[1] + 4 * x[2] + 2 * x[3] + x[4];
      return digit(kModelSBoxes[group][16 * row + column]);
    },
};

const Rules kVariant = {
    {1, 2, 4, 6, 8, 10, 12, 14, 15, 17, 19, 21, 23, 25, 27, 28},
    [](int, const Bits& x) {
      const int row = 2 * x[0] + x[5];
      const int column = 15 * x[2];
      return digit(kModelSBoxes[row][column]);
    },
};

Bytes8 feistel(const Rules& rules, const Bytes8& block, const Bytes8& key,
               Direction direction) {
  const Bits chosen = permuted(bits_of(key), kModelPc1);
  Bits c = part(chosen, 0, 28);
  Bits d = part(chosen, 28, 28);
  std::vector<Bits> subkeys;
  for (const int shift : rules.shifts) {
    c = rotated(c, shift);
    d = rotated(d, shift);
    subkeys.push_back(permuted(joined(c, d), kModelPc2));
  }
  const Bits start = permuted(bits_of(block), kModelIp);
  Bits left = part(start, 0, 32);
  Bits right = part(start, 32, 32);
  for (size_t round = 0; round < 16; ++round) {
    const Bits& subkey = subkeys[direction == Direction::kEncrypt ? round : 15 - round];
    const Bits x = combined(permuted(right, kModelE), subkey);
    Bits values;
    for (int group = 0; group < 8; ++group) {
      const int value = rules.lookup(group, part(x, 6 * group, 6));
      for (int bit = 3; bit >= 0; --bit) values.push_back(value >> bit & 1);
    }
    const Bits next = combined(left, permuted(values, kModelP));
    left = right;
    right = next;
  }
  return bytes_of(permuted(joined(right, left), kModelFp));
}

}  // namespace

Bytes8 standard_des(const Bytes8& block, const Bytes8& key, Direction direction) {
  return feistel(kStandard, block, key, direction);
}

Bytes8 variant_des(const Bytes8& block, const Bytes8& key, Direction direction) {
  return feistel(kVariant, block, key, direction);
}

Bytes8 mirrored(const Bytes8& key) {
  Bytes8 result{};
  for (size_t i = 0; i < 8; ++i) {
    for (int bit = 0; bit < 8; ++bit) {
      if ((key[i] >> bit & 1) != 0)
        result[i] = static_cast<uint8_t>(result[i] | 0x80 >> bit);
    }
  }
  return result;
}

}  // namespace test
