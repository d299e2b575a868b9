// Base64 encoding and decoding. Tables hold each character and each value shifted to its
// place in a word, so that a group is four look-ups combined; 4 KB for each direction.
// Groups are decoded four at a time, and one at a time if any is unusual.
//
// SPDX-License-Identifier: MIT

#include <groundwork/crypt.h>

#include <array>
#include <bit>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/built_for.h"
#include "core/check.h"

namespace {

constexpr char kSource[] = "g_crypt";

constexpr char kAlphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPad = '=';

// The longest input whose encoded length fits in an int.
constexpr int kLongestInput = INT_MAX / 4 * 3;

// The wide tables make both directions several times faster.
constexpr bool kWideTables = groundwork::kForSpeed;
using Table = std::array<uint32_t, 256>;

// The four characters of a group as they are in memory. Indices include bits of their
// neighbours: the first character is selected by the upper six of eight bits, the others by
// the lower six.
constexpr std::array<Table, 4> kCharacters = [] {
  std::array<Table, 4> tables{};
  for (unsigned place = 0; place < 4; ++place) {
    const unsigned byte = std::endian::native == std::endian::little ? place : 3 - place;
    for (unsigned index = 0; index < 256; ++index) {
      const char c = kAlphabet[place == 0 ? index >> 2 : index & 63];
      tables[place][index] = uint32_t{static_cast<unsigned char>(c)} << (8 * byte);
    }
  }
  return tables;
}();

// The values of a group's four characters, shifted to their places in 24 bits.
constexpr uint32_t kNoCharacter = 0x80000000;
constexpr std::array<Table, 4> kValues = [] {
  std::array<Table, 4> tables{};
  for (unsigned place = 0; place < 4; ++place) {
    tables[place].fill(kNoCharacter);
    for (unsigned value = 0; value < 64; ++value) {
      const auto c = static_cast<unsigned char>(kAlphabet[value]);
      tables[place][c] = value << (18 - 6 * place);
    }
  }
  return tables;
}();
static_assert(sizeof kCharacters + sizeof kValues == 8192);

uint32_t load_big_endian(const unsigned char* bytes) {
  uint32_t word;
  std::memcpy(&word, bytes, sizeof word);
  return std::endian::native == std::endian::big ? word : __builtin_bswap32(word);
}

void store_big_endian(unsigned char* bytes, uint32_t word) {
  if constexpr (std::endian::native != std::endian::big) word = __builtin_bswap32(word);
  std::memcpy(bytes, &word, sizeof word);
}

// Encodes three bytes; reads four.
inline uint32_t encoded(const unsigned char* bytes) {
  const uint32_t word = load_big_endian(bytes);
  return kCharacters[0][bytes[0]] | kCharacters[1][word >> 20 & 255] |
         kCharacters[2][word >> 14 & 255] | kCharacters[3][bytes[2]];
}

// Encodes the upper three bytes of a word.
inline uint32_t encoded(uint32_t word) {
  if constexpr (!kWideTables) {
    const char group[] = {kAlphabet[word >> 26], kAlphabet[word >> 20 & 63],
                          kAlphabet[word >> 14 & 63], kAlphabet[word >> 8 & 63]};
    return std::bit_cast<uint32_t>(group);
  }
  return kCharacters[0][word >> 24] | kCharacters[1][word >> 20 & 255] |
         kCharacters[2][word >> 14 & 255] | kCharacters[3][word >> 8 & 255];
}

void store_group(char* dest, uint32_t group) {
  std::memcpy(dest, &group, sizeof group);
}

// Encodes whole groups of three bytes, without a NUL.
void encode_groups(const unsigned char* bytes, size_t count, char* dest) {
  // Loads four bytes but uses three.
  for (; kWideTables && count >= 13; count -= 12, bytes += 12, dest += 16) {
#pragma GCC unroll 4
    for (unsigned group = 0; group < 4; ++group) {
      store_group(dest + 4 * group, encoded(bytes + 3 * group));
    }
  }
  for (; kWideTables && count >= 4; count -= 3, bytes += 3, dest += 4) {
    store_group(dest, encoded(bytes));
  }
  for (; count >= 3; count -= 3, bytes += 3, dest += 4) {
    store_group(dest, encoded(uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 |
                              uint32_t{bytes[2]} << 8));
  }
}

// Encodes the last one or two bytes, without a NUL.
void encode_rest(const unsigned char* bytes, size_t count, char* dest) {
  // Kept: the bytes are signed here, and readers expect the result. The sign of the second
  // overwrites all bits of the first.
  uint32_t bits = static_cast<uint32_t>(static_cast<int8_t>(bytes[0]) * 65536);
  if (count == 2) {
    bits |= static_cast<uint32_t>(static_cast<int8_t>(bytes[1]) * 256);
  }
  dest[0] = kAlphabet[bits >> 18 & 63];
  dest[1] = kAlphabet[bits >> 12 & 63];
  dest[2] = count == 2 ? kAlphabet[bits >> 6 & 63] : kPad;
  dest[3] = kPad;
}

// The 24 bits of a group, with kNoCharacter set if any of the four is not in the alphabet.
uint32_t decoded(const unsigned char* text) {
  return kValues[0][text[0]] | kValues[1][text[1]] | kValues[2][text[2]] |
         kValues[3][text[3]];
}

// The value of a character; kNoCharacter if it is not in the alphabet.
uint32_t value_of(unsigned char c) {
  if constexpr (kWideTables) return kValues[3][c];
  const void* const found = std::memchr(kAlphabet, c, sizeof kAlphabet - 1);
  if (found == nullptr) return kNoCharacter;
  return static_cast<uint32_t>(static_cast<const char*>(found) - kAlphabet);
}

// Decodes any group. Returns the number of bytes, or -1 with nothing written.
int decode_group(const unsigned char* text, bool at_end, unsigned char* dest) {
  constexpr uint32_t kUnset = 255;
  constexpr uint32_t kPadding = 127;
  uint32_t values[4] = {kUnset, kUnset, kUnset, kUnset};
  for (unsigned place = 0; place < 4; ++place) {
    const uint32_t value = value_of(text[place]);
    if (value != kNoCharacter) {
      // Kept: accepted even in the last place after a "=", where it is ignored.
      values[place] = value;
    } else if (text[place] == kPad && at_end && place >= 2) {
      values[place] = kPadding;
    } else {
      return -1;
    }
  }
  const auto [a, b, c, d] = values;
  const uint32_t bits = a << 18 | b << 12 | c << 6 | d;
  dest[0] = static_cast<unsigned char>(bits >> 16);
  if (c == kPadding) return 1;
  dest[1] = static_cast<unsigned char>(bits >> 8);
  if (d == kPadding) return 2;
  dest[2] = static_cast<unsigned char>(bits);
  return 3;
}

// Decodes groups four at a time, up to four that are not all plain, such as the last of a
// padded text. Returns the number of groups decoded.
size_t decode_plain_groups(const unsigned char* text, size_t groups, unsigned char* dest) {
  size_t done = 0;
  for (; kWideTables && groups - done >= 4; done += 4, text += 16, dest += 12) {
    const uint32_t a = decoded(text);
    const uint32_t b = decoded(text + 4);
    const uint32_t c = decoded(text + 8);
    const uint32_t d = decoded(text + 12);
    if (((a | b | c | d) & kNoCharacter) != 0) break;
    store_big_endian(dest, a << 8 | b >> 16);
    store_big_endian(dest + 4, b << 16 | c >> 8);
    store_big_endian(dest + 8, c << 24 | d);
  }
  return done;
}

}  // namespace

extern "C" int g_crypt_base64_encode(const void* src, char* dest, int length) {
  CHECK_ARG(src && dest, -1);
  if (length > kLongestInput) return -1;
  const size_t count = length > 0 ? static_cast<size_t>(length) : 0;
  const size_t rest = count % 3;
  const auto* const bytes = static_cast<const unsigned char*>(src);
  encode_groups(bytes, count, dest);
  char* end = dest + count / 3 * 4;
  if (rest != 0) {
    encode_rest(bytes + count - rest, rest, end);
    end += 4;
  }
  *end = '\0';
  return static_cast<int>(end - dest);
}

// The parameter is called `src` because the text of the check is logged.
extern "C" int g_crypt_base64_decode(const char* src, void* dest) {
  // Kept: the length is taken first, so a null text faults instead of being reported.
  const size_t length = std::strlen(src);
  CHECK_ARG(src && dest, -1);
  CHECK_ARG(!(length % 4), -1);
  const size_t groups = length / 4;
  if (groups > INT_MAX / 3) return -1;

  const auto* const text = reinterpret_cast<const unsigned char*>(src);
  auto* const bytes = static_cast<unsigned char*>(dest);
  size_t group = decode_plain_groups(text, groups, bytes);
  size_t count = 3 * group;
  for (; group < groups; ++group) {
    const int added = decode_group(text + 4 * group, group + 1 == groups, bytes + count);
    if (added < 0) return -1;
    count += static_cast<size_t>(added);
  }
  bytes[count] = 0;
  return static_cast<int>(count);
}
