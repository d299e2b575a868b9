// Both block ciphers against models that go bit by bit through the tables, and back.
//
// SPDX-License-Identifier: MIT

#include <groundwork/crypt.h>
#include <groundwork/des_tables.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/support/buffer.h"
#include "fuzz/support/check.h"
#include "fuzz/support/input.h"

namespace {

using Bits = std::vector<unsigned>;  // the first is the highest of the first byte

Bits bits_of(const std::string& bytes) {
  Bits bits;
  bits.reserve(8 * bytes.size());
  for (const char byte : bytes) {
    for (int i = 7; i >= 0; --i) bits.push_back(static_cast<unsigned char>(byte) >> i & 1U);
  }
  return bits;
}

std::string bytes_of(const Bits& bits) {
  std::string bytes(bits.size() / 8, '\0');
  for (size_t i = 0; i < bits.size(); ++i) {
    if (bits[i] != 0) bytes[i / 8] = static_cast<char>(bytes[i / 8] | 0x80 >> i % 8);
  }
  return bytes;
}

Bits permuted(const Bits& bits, std::span<const int32_t> table) {
  Bits result;
  result.reserve(table.size());
  for (const int32_t place : table) {
    result.push_back(bits[static_cast<size_t>(place - 1)]);
  }
  return result;
}

Bits joined(Bits first, const Bits& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Bits first_half(const Bits& bits) {
  return Bits(bits.begin(), bits.begin() + static_cast<ptrdiff_t>(bits.size() / 2));
}
Bits second_half(const Bits& bits) {
  return Bits(bits.begin() + static_cast<ptrdiff_t>(bits.size() / 2), bits.end());
}

void rotate_left(Bits& bits, int32_t count) {
  std::rotate(bits.begin(), bits.begin() + count % 28, bits.end());
}

// The standard's, or our own of g_crypt_des: its totals add up from round to round, and two
// bits choose from its S-boxes.
struct Cipher {
  bool standard;

  std::vector<Bits> subkeys(const std::string& key) const {
    const Bits chosen = permuted(bits_of(key), pc1);
    const Bits c0 = first_half(chosen);
    const Bits d0 = second_half(chosen);
    std::vector<Bits> keys;
    Bits c = c0;
    Bits d = d0;
    for (const int32_t total : rotate) {
      if (standard) {
        c = c0;
        d = d0;
      }
      rotate_left(c, total);
      rotate_left(d, total);
      keys.push_back(permuted(joined(c, d), pc2));
    }
    return keys;
  }

  unsigned substituted(size_t group, const unsigned* x) const {
    const unsigned row = 2 * x[0] + x[5];
    if (!standard) return s_box[64 * row + 15 * x[2]];
    const unsigned column = 8 * x[1] + 4 * x[2] + 2 * x[3] + x[4];
    return s_box[64 * group + 16 * row + column];
  }

  Bits round(const Bits& half, const Bits& subkey) const {
    Bits mixed = permuted(half, e);
    for (size_t i = 0; i < mixed.size(); ++i) mixed[i] ^= subkey[i];
    Bits substitutes;
    substitutes.reserve(32);
    for (size_t group = 0; group < 8; ++group) {
      const unsigned value = substituted(group, &mixed[6 * group]);
      for (int i = 3; i >= 0; --i) substitutes.push_back(value >> i & 1U);
    }
    return permuted(substitutes, p32);
  }

  std::string encrypt(const std::string& block, const std::string& key) const {
    const Bits start = permuted(bits_of(block), ip);
    Bits left = first_half(start);
    Bits right = second_half(start);
    for (const Bits& subkey : subkeys(key)) {
      Bits next = round(right, subkey);
      for (size_t i = 0; i < next.size(); ++i) next[i] ^= left[i];
      left = right;
      right = next;
    }
    return bytes_of(permuted(joined(right, left), fp));
  }
};

// The other cipher is the standard's under a key whose bytes are read from the low end.
std::string mirrored(const std::string& key) {
  Bits bits = bits_of(key);
  for (size_t i = 0; i < bits.size(); i += 8) {
    std::reverse(bits.begin() + static_cast<ptrdiff_t>(i),
                 bits.begin() + static_cast<ptrdiff_t>(i + 8));
  }
  return bytes_of(bits);
}

using Function = int (*)(const void*, void*, const void*);

void check(Function encrypt, Function decrypt, const fuzz::Buffer& block,
           const fuzz::Buffer& key, const std::string& model) {
  fuzz::Buffer out(8);
  REQUIRE_EQUAL(encrypt(block.data(), out.data(), key.data()), 0);
  REQUIRE_EQUAL(out.content(), model);
  REQUIRE_EQUAL(decrypt(out.data(), out.data(), key.data()), 0);
  REQUIRE_EQUAL(out.content(), block.content());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  std::string key_bytes = input.bytes(8);
  std::string block_bytes = input.bytes(8);
  key_bytes.resize(8);
  block_bytes.resize(8);
  const fuzz::Buffer key{std::string_view(key_bytes)};
  const fuzz::Buffer block{std::string_view(block_bytes)};
  check(g_crypt_des_encrypt, g_crypt_des_decrypt, block, key,
        Cipher{false}.encrypt(block_bytes, key_bytes));
  check(g_crypt_d3des_encrypt, g_crypt_d3des_decrypt, block, key,
        Cipher{true}.encrypt(block_bytes, mirrored(key_bytes)));
  return 0;
}
