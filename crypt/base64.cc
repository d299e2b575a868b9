// Base64 encoding and decoding. Tables hold each value, and for x86 each character, in its
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
#include <memory>

#include "core/built_for.h"
#include "core/check.h"
#include "core/word.h"

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_crypt";

constexpr char kAlphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPad = '=';

// The longest input whose encoded length fits in an int.
constexpr int kLongestInput = INT_MAX / 4 * 3;

// Whether a group is encoded as one word from wide tables, or each character by itself. On
// x86, one instruction scales an index, loads the entry and combines it with the others.
#if defined __i386__ || defined __x86_64__
constexpr bool kWideCharacters = kForSpeed;
#else
constexpr bool kWideCharacters = false;
#endif

using Table = std::array<uint32_t, 256>;

// The four characters of a group as they are in memory. Indices include bits of their
// neighbours: the first character is selected by the upper six of eight bits, the others by
// the lower six.
constexpr std::array<Table, 4> kCharacters = [] {
  std::array<Table, 4> tables{};
  for (unsigned place = 0; place < 4; ++place) {
    for (unsigned index = 0; index < 256; ++index) {
      const char c = kAlphabet[place == 0 ? index >> 2 : index & 63];
      tables[place][index] =
          big_endian(uint32_t{static_cast<unsigned char>(c)} << (24 - 8 * place));
    }
  }
  return tables;
}();

// What each of a group's four characters contributes to its three bytes, as they are in
// memory. The fourth byte marks what is not in the alphabet.
constexpr uint32_t kNoCharacter = big_endian(0x80);
constexpr std::array<Table, 4> kValues = [] {
  std::array<Table, 4> tables{};
  for (unsigned place = 0; place < 4; ++place) {
    tables[place].fill(kNoCharacter);
    for (unsigned value = 0; value < 64; ++value) {
      const auto c = static_cast<unsigned char>(kAlphabet[value]);
      tables[place][c] = big_endian(value << (26 - 6 * place));
    }
  }
  return tables;
}();
static_assert(sizeof kCharacters + sizeof kValues == 8192);

// Encodes the upper three bytes of a word.
inline void encode_group(uint32_t word, char* dest) {
  dest[0] = kAlphabet[word >> 26];
  dest[1] = kAlphabet[word >> 20 & 63];
  dest[2] = kAlphabet[word >> 14 & 63];
  dest[3] = kAlphabet[word >> 8 & 63];
}

// Encodes three bytes; reads four.
inline void encode_group(const unsigned char* bytes, char* dest) {
  const uint32_t word = big_endian(load_word(bytes));
  if constexpr (!kWideCharacters) return encode_group(word, dest);
  store_word(dest, kCharacters[0][bytes[0]] | kCharacters[1][word >> 20 & 255] |
                       kCharacters[2][word >> 14 & 255] | kCharacters[3][bytes[2]]);
}

// Whether encode_four_groups() takes the address. Characters encoded one by one need an
// aligned one, from which MIPS loads a word with one instruction instead of two.
bool suits_four_groups(const unsigned char* bytes) {
  return kWideCharacters || reinterpret_cast<uintptr_t>(bytes) % sizeof(uint32_t) == 0;
}

// Encodes twelve bytes; reads up to thirteen.
inline void encode_four_groups(const unsigned char* bytes, char* dest) {
  if constexpr (kWideCharacters) {
    encode_group(bytes, dest);
    encode_group(bytes + 3, dest + 4);
    encode_group(bytes + 6, dest + 8);
    encode_group(bytes + 9, dest + 12);
  } else {
    const auto* const aligned = std::assume_aligned<sizeof(uint32_t)>(bytes);
    encode_group(aligned, dest);
    encode_group(aligned + 3, dest + 4);
    encode_group(aligned + 6, dest + 8);
    encode_group(big_endian(load_word(aligned + 8)) << 8, dest + 12);
  }
}

// Encodes whole groups of three bytes, without a NUL.
void encode_groups(const unsigned char* bytes, size_t count, char* dest) {
  if constexpr (kForSpeed) {
    // The last three bytes stay, as four would be read for them.
    for (; count > 3 && !suits_four_groups(bytes); count -= 3, bytes += 3, dest += 4) {
      encode_group(bytes, dest);
    }
    if (count > 3) {
      const unsigned char* const last = bytes + (count - 1) / 12 * 12;
      for (; bytes != last; bytes += 12, dest += 16) encode_four_groups(bytes, dest);
      count = (count - 1) % 12 + 1;
    }
    for (; count > 3; count -= 3, bytes += 3, dest += 4) encode_group(bytes, dest);
  }
  for (; count >= 3; count -= 3, bytes += 3, dest += 4) {
    encode_group(
        uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8,
        dest);
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

// The three bytes of a group as they are in memory, with kNoCharacter set if any of its
// characters is not in the alphabet.
uint32_t decoded(const unsigned char* text) {
  return kValues[0][text[0]] | kValues[1][text[1]] | kValues[2][text[2]] |
         kValues[3][text[3]];
}

// The value of a character; kNoCharacter if it is not in the alphabet.
uint32_t value_of(unsigned char c) {
  if constexpr (kForSpeed) {
    const uint32_t entry = kValues[3][c];
    return entry == kNoCharacter ? entry : big_endian(entry) >> 8;
  }
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

// The last byte of a group and the three of the next, as they are in memory.
uint32_t joined(uint32_t group, uint32_t next) {
  if constexpr (std::endian::native == std::endian::big) return group << 16 | next >> 8;
  return group >> 16 | next << 8;
}

// Decodes groups four at a time, up to four that are not all plain, such as the last of a
// padded text. Returns the number of groups decoded.
size_t decode_plain_groups(const unsigned char* text, size_t groups, unsigned char* dest) {
  if constexpr (!kForSpeed) return 0;
  const unsigned char* const start = text;
  const unsigned char* const end = text + groups / 4 * 16;
  for (; text != end; text += 16, dest += 12) {
    const uint32_t a = decoded(text);
    const uint32_t b = decoded(text + 4);
    const uint32_t c = decoded(text + 8);
    const uint32_t d = decoded(text + 12);
    if (((a | b | c | d) & kNoCharacter) != 0) break;
    // The next store overwrites the fourth byte of each.
    store_word(dest, a);
    store_word(dest + 3, b);
    store_word(dest + 6, c);
    store_word(dest + 8, joined(c, d));
  }
  return static_cast<size_t>(text - start) / 4;
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
