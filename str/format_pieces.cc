// The text of a simple format, put together from pieces.
//
// SPDX-License-Identifier: MIT

#include "str/format_pieces.h"

#include <charconv>
#include <cstring>

using namespace groundwork;

namespace {

constexpr std::size_t kLongestNumber = 21;  // a minus and 20 digits
constexpr std::size_t kMostPadding = 32;
constexpr char kBlanks[kMostPadding + 1] = "                                ";
constexpr char kZeros[kMostPadding + 1] = "00000000000000000000000000000000";

// Both return the end of the digits. A 64-bit number is taken apart into 32-bit ones first,
// by which a 32-bit processor divides many times faster.
char* spell_decimal(char* out, std::uint64_t number) {
  if (number <= UINT32_MAX) {
    return std::to_chars(out, out + 10, static_cast<std::uint32_t>(number)).ptr;
  }
  constexpr std::uint32_t kBillion = 1'000'000'000;
  out = spell_decimal(out, number / kBillion);
  auto rest = static_cast<std::uint32_t>(number % kBillion);
  for (int i = 8; i >= 0; --i, rest /= 10) out[i] = static_cast<char>('0' + rest % 10);
  return out + 9;
}

char* spell_hexadecimal(char* out, std::uint64_t number, bool upper_case) {
  const char* const digits = upper_case ? "0123456789ABCDEF" : "0123456789abcdef";
  int bits = 4;
  while (bits < 64 && number >> bits != 0) bits += 4;
  while (bits > 0) {
    bits -= 4;
    *out++ = digits[number >> bits & 0xf];
  }
  return out;
}

}  // namespace

void FormatPieces::add_padding(const char* fill, std::size_t count) {
  if (count > kMostPadding) return give_up();
  add(fill, count);
}

void FormatPieces::add_text(const char* text, std::size_t length, const Layout& layout) {
  if (layout.width <= length) return add(text, length);
  if (!layout.left_adjust) add_padding(kBlanks, layout.width - length);
  add(text, length);
  if (layout.left_adjust) add_padding(kBlanks, layout.width - length);
}

void FormatPieces::add_character(char c) {
  if (scratch_used_ == kScratchSize) return give_up();
  scratch_[scratch_used_] = c;
  add(scratch_ + scratch_used_++, 1);
}

void FormatPieces::add_number(std::uint64_t magnitude, bool negative, Base base,
                              const Layout& layout) {
  if (kScratchSize - scratch_used_ < kLongestNumber) return give_up();
  char* const text = scratch_ + scratch_used_;
  *text = '-';
  char* const digits = negative ? text + 1 : text;
  char* const end =
      base == Base::kDecimal
          ? spell_decimal(digits, magnitude)
          : spell_hexadecimal(digits, magnitude, base == Base::kUpperHexadecimal);
  scratch_used_ = static_cast<std::size_t>(end - scratch_);

  const auto length = static_cast<std::size_t>(end - text);
  if (!layout.zero_padding || layout.left_adjust || layout.width <= length) {
    return add_text(text, length, layout);
  }
  if (negative) add(text, 1);
  add_padding(kZeros, layout.width - length);
  add(digits, static_cast<std::size_t>(end - digits));
}

void FormatPieces::write(char* out) const {
  for (std::size_t i = 0; i < count_; ++i) {
    std::memcpy(out, pieces_[i].text, pieces_[i].length);
    out += pieces_[i].length;
  }
}
