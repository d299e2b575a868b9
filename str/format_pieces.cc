// The text of a simple format, assembled from pieces.
//
// SPDX-License-Identifier: MIT

#include "str/format_pieces.h"

#include <bit>
#include <charconv>

#include "core/copy_text.h"
#include "str/format_double.h"

using namespace groundwork;

namespace {

constexpr size_t kLongestNumber = 20;  // 64 bits, with a minus sign
constexpr size_t kMostPadding = 32;
constexpr char kBlanks[kMostPadding + 1] = "                                ";
constexpr char kZeros[kMostPadding + 1] = "00000000000000000000000000000000";

// These return the end of the digits. A large 64-bit number is split into 32-bit ones, and
// a small one is treated as 32-bit: a 32-bit processor divides those many times faster.
char* format_decimal(char* out, uint64_t number) {
  if (number <= UINT32_MAX) {
    return std::to_chars(out, out + 10, static_cast<uint32_t>(number)).ptr;
  }
  constexpr uint32_t kBillion = 1'000'000'000;
  const uint64_t billions = number / kBillion;
  out = format_decimal(out, billions);
  auto rest = static_cast<uint32_t>(number - billions * kBillion);
  for (int i = 8; i >= 0; --i, rest /= 10) out[i] = static_cast<char>('0' + rest % 10);
  return out + 9;
}

template <typename Word>
char* format_hexadecimal(char* out, Word number, bool upper_case) {
  const char* const digits = upper_case ? "0123456789ABCDEF" : "0123456789abcdef";
  char* const end = out + (number == 0 ? 1 : (std::bit_width(number) + 3) / 4);
  for (char* digit = end; digit != out; number >>= 4) *--digit = digits[number & 0xf];
  return end;
}

char* format_number(char* out, uint64_t number, FormatPieces::Base base) {
  if (base == FormatPieces::Base::kDecimal) return format_decimal(out, number);
  const bool upper_case = base == FormatPieces::Base::kUpperHexadecimal;
  return number <= UINT32_MAX
             ? format_hexadecimal(out, static_cast<uint32_t>(number), upper_case)
             : format_hexadecimal(out, number, upper_case);
}

}  // namespace

void FormatPieces::add_padding(const char* fill, size_t count) {
  if (count > kMostPadding) return give_up();
  add(fill, count);
}

void FormatPieces::add_text(const char* text, size_t length, const Layout& layout) {
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

// Returns where the digits of the next number go.
inline char* FormatPieces::begin_number(bool negative) {
  char* const text = scratch_ + scratch_used_;
  *text = '-';
  return negative ? text + 1 : text;
}

// Adds the number whose digits were written at the address that begin_number() returned.
inline void FormatPieces::end_number(const char* digits, const char* end, bool negative,
                                     const Layout& layout) {
  const char* const text = negative ? digits - 1 : digits;
  scratch_used_ = static_cast<size_t>(end - scratch_);
  const auto length = static_cast<size_t>(end - text);
  if (layout.width <= length) return add(text, length);
  if (!layout.zero_padding || layout.left_adjust) return add_text(text, length, layout);
  if (negative) add(text, 1);
  add_padding(kZeros, layout.width - length);
  add(digits, static_cast<size_t>(end - digits));
}

void FormatPieces::add_number(uint64_t magnitude, bool negative, Base base,
                              const Layout& layout) {
  if (!complete_ || kScratchSize - scratch_used_ < kLongestNumber) return give_up();
  char* const digits = begin_number(negative);
  end_number(digits, format_number(digits, magnitude, base), negative, layout);
}

void FormatPieces::add_float(uint64_t double_bits, unsigned precision, bool general,
                             const Layout& layout) {
  if (!complete_ || kScratchSize - scratch_used_ < 1 + kLongestDouble) return give_up();
  const bool negative = double_bits >> 63 != 0;
  char* const digits = begin_number(negative);
  char* const end = format_double(digits, double_bits, precision, general);
  if (end == nullptr) return give_up();
  end_number(digits, end, negative, layout);
}

void FormatPieces::write(char* out) const {
  for (size_t i = 0; i < count_; ++i) {
    out = copy_text(out, pieces_[i].text, pieces_[i].length);
  }
}
