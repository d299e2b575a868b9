// The walk over a format that estimates the size of its text. The estimate is generous and
// fixed: it is the size of the blocks that callers get, so no number here may change.
//
// SPDX-License-Identifier: MIT

#include "str/format_estimate.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include <groundwork/log.h>
#include <groundwork/str.h>

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_str";

constexpr bool kLongIs64Bit = sizeof(long) == 8;
constexpr std::uint64_t kMargin = 1024;  // for what cannot be measured

// What is known of one conversion.
struct Conversion {
  std::uint32_t width = 0;
  std::uint32_t precision = 0;
  bool alternate_form = false;
  bool zero_padding = false;
  bool left_adjust = false;
  bool locale_grouping = false;
  bool add_space = false;
  bool add_sign = false;
  bool possible_sign = false;
  bool seen_precision = false;
  bool long_size = false;
  bool extra_long = false;
  bool pointer_size = false;  // size_t, ptrdiff_t
  bool intmax_size = false;
  bool done = false;
  std::uint64_t length = 0;  // characters reserved; a length finishes the conversion
  // The argument.
  std::uint64_t integer = 0;
  const char* string = nullptr;
  std::size_t string_length = 0;
};

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// Digits before the point of a double with these bits, as far as its exponent tells; for a
// small number its distance from 1. None for zero, subnormals, infinities and NaN.
std::uint64_t integral_digits(std::uint64_t double_bits) {
  const int exponent = static_cast<int>(double_bits >> 52 & 0x7ff);
  if (exponent < 1 || exponent > 2046) return 0;
  return static_cast<std::uint64_t>(
      std::abs(static_cast<int>((exponent - 1023) * 0.3010299956639812 + 1)));
}

class FormatWalk {
 public:
  FormatWalk(const char* fmt, va_list args, FormatPieces& pieces)
      : at_(fmt), pieces_(pieces) {
    va_copy(args_, args);
  }
  FormatWalk(const FormatWalk&) = delete;
  FormatWalk& operator=(const FormatWalk&) = delete;
  ~FormatWalk() { va_end(args_); }

  std::uint64_t estimate();

 private:
  void measure_conversion();
  void take(char c, Conversion& conversion);
  void take_number(Conversion& conversion);
  void take_asterisk(Conversion& conversion);
  void take_integer(Conversion& conversion);
  void take_float(char c, Conversion& conversion);
  void take_string(Conversion& conversion);
  void spell(const char* modifiers, const Conversion& conversion);

  const char* at_;
  va_list args_;
  FormatPieces& pieces_;
  std::uint64_t total_ = 1;  // the terminator
};

std::uint64_t FormatWalk::estimate() {
  if (at_ == nullptr) return total_;
  while (*at_ != '\0') {
    if (*at_ == '%') {
      ++at_;
      measure_conversion();
      continue;
    }
    const char* const literal = at_;
    while (*at_ != '\0' && *at_ != '%') ++at_;
    const auto length = static_cast<std::size_t>(at_ - literal);
    total_ += length;
    pieces_.add(literal, length);
  }
  return total_;
}

void FormatWalk::measure_conversion() {
  const char* const start = at_;
  Conversion conversion;
  while (!conversion.done && conversion.length == 0) {
    const char c = *at_++;
    if (c == '\0') [[unlikely]] {
      // Unfinished: its characters are printed at worst, the terminator counted with them.
      conversion.length = static_cast<std::uint64_t>(at_ - start);
      --at_;
      pieces_.give_up();
      break;
    }
    take(c, conversion);
  }
  if (pieces_.complete()) spell(start, conversion);

  std::uint64_t length =
      std::max<std::uint64_t>({conversion.length, conversion.precision, conversion.width});
  if (conversion.alternate_form) length += 2;
  if (conversion.add_space || conversion.add_sign || conversion.possible_sign) length += 1;
  total_ += length;
}

void FormatWalk::take(char c, Conversion& conversion) {
  switch (c) {
    case '#':
      conversion.alternate_form = true;
      break;
    case '0':
      conversion.zero_padding = true;
      break;
    case '-':
      conversion.left_adjust = true;
      break;
    case ' ':
      conversion.add_space = true;
      break;
    case '+':
      conversion.add_sign = true;
      break;
    case '\'':
      conversion.locale_grouping = true;
      break;
    case '.':
      conversion.seen_precision = true;
      break;
    case '1':
    case '2':
    case '3':
    case '4':
    case '5':
    case '6':
    case '7':
    case '8':
    case '9':
      take_number(conversion);
      break;
    case '*':
      take_asterisk(conversion);
      break;
    case 'h':
      break;
    case 'l':
      conversion.extra_long |= conversion.long_size;
      conversion.long_size = true;
      break;
    case 'L':
    case 'q':
      conversion.long_size = true;
      conversion.extra_long = true;
      break;
    case 'z':
    case 'Z':
    case 't':
      conversion.pointer_size = true;
      break;
    case 'j':
      conversion.intmax_size = true;
      break;

    case '%':
      conversion.length += 1;
      break;
    // Each row below is the next one and something more.
    case 'D':
    case 'I':
    case 'O':
    case 'U':
      conversion.long_size = true;
      [[fallthrough]];
    case 'o':
      conversion.length += 2;
      [[fallthrough]];
    case 'd':
    case 'i':
      conversion.length += 1;
      [[fallthrough]];
    case 'u':
      conversion.length += 4;
      [[fallthrough]];
    case 'x':
    case 'X':
      conversion.length += 10;
      take_integer(conversion);
      break;
    case 'a':
    case 'A':
      conversion.length += 2;  // "0x"
      [[fallthrough]];
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
      take_float(c, conversion);
      break;
    case 'C':
      conversion.long_size = true;
      [[fallthrough]];
    case 'c':
      conversion.length += conversion.long_size ? 16 : 1;
      conversion.integer = static_cast<unsigned char>(va_arg(args_, int));
      break;
    case 'S':
      conversion.long_size = true;
      [[fallthrough]];
    case 's':
      take_string(conversion);
      break;
    case 'p':
    case 'P':
      conversion.alternate_form = true;
      conversion.length += sizeof(void*) == 8 ? 20 : 10;
      [[fallthrough]];
    case 'n':
      static_cast<void>(va_arg(args_, void*));
      conversion.done = true;
      break;
    case 'm': {
      // Kept: the copy is not freed. Programs' heap figures have always shown it, and the
      // size reserved is that of the longer one, 256.
      const char* const placeholder = g_strdup("ERROR_MSG: G_STR");
      conversion.length +=
          std::max<std::size_t>(256, placeholder != nullptr ? std::strlen(placeholder) : 0);
      break;
    }
    case '$':
      g_log(G_LOG_WARNING, kSource, __LINE__,
            "unable to handle positional parameters(%%n$)");
      total_ += kMargin;
      conversion.done = true;
      break;
    default:
      // The conversion goes on: a known character behind this one still counts.
      g_log(G_LOG_WARNING, kSource, __LINE__,
            "(): unable to handle `%c' while parsing format", c);
      pieces_.give_up();
      break;
  }
}

// A decimal number of which the first digit was taken. The largest one wins where a
// conversion has several; one beyond 32 bits counts as the largest of 32 bits.
void FormatWalk::take_number(Conversion& conversion) {
  std::uint64_t number = 0;
  for (--at_; is_digit(*at_); ++at_) {
    number = std::min<std::uint64_t>(10 * number + static_cast<unsigned>(*at_ - '0'),
                                     UINT32_MAX);
  }
  std::uint32_t& field =
      conversion.seen_precision ? conversion.precision : conversion.width;
  field = std::max(field, static_cast<std::uint32_t>(number));
}

void FormatWalk::take_asterisk(Conversion& conversion) {
  const int number = va_arg(args_, int);
  if (conversion.seen_precision) {
    // A negative one leaves the precision seen, with 0 or what it was.
    if (number >= 0) {
      conversion.precision =
          std::max(conversion.precision, static_cast<std::uint32_t>(number));
    }
    return;
  }
  auto width = static_cast<std::uint32_t>(number);
  if (number < 0) {
    conversion.left_adjust = true;
    width = 0 - width;
  }
  conversion.width = std::max(conversion.width, width);
}

// Reserves twice the length for 64 bits, and takes what the system formatter takes: an
// intmax_t has 64 bits everywhere although only the short length is reserved for it.
void FormatWalk::take_integer(Conversion& conversion) {
  conversion.possible_sign = true;
  const bool reserves_64_bit =
      conversion.extra_long ||
      (kLongIs64Bit &&
       (conversion.long_size || conversion.pointer_size || conversion.intmax_size));
  if (reserves_64_bit) conversion.length *= 2;
  conversion.integer = reserves_64_bit || conversion.intmax_size
                           ? va_arg(args_, std::uint64_t)
                           : va_arg(args_, std::uint32_t);
}

void FormatWalk::take_float(char c, Conversion& conversion) {
  conversion.possible_sign = true;
  // One digit, the point, the digits, the exponent letter, its sign and four digits.
  conversion.length += 8 + std::max<std::uint64_t>(24, conversion.precision);
  std::uint64_t double_bits;
  if (conversion.extra_long) {
    g_log(G_LOG_WARNING, kSource, __LINE__,
          "(): unable to handle long double, collecting double only");
    // Measured by its first eight bytes as if they were a double, but taken whole: the
    // arguments behind it stay in step.
    const long double value = va_arg(args_, long double);
    std::memcpy(&double_bits, &value, sizeof double_bits);
  } else {
    double_bits = std::bit_cast<std::uint64_t>(va_arg(args_, double));
  }
  if (c == 'f') conversion.length += integral_digits(double_bits);
  conversion.length += 2;  // rounding
  if (conversion.locale_grouping) conversion.length *= 2;
}

void FormatWalk::take_string(Conversion& conversion) {
  if (conversion.long_size) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "(): unable to handle wide char strings");
    total_ += kMargin;
  }
  conversion.string = va_arg(args_, const char*);
  if (conversion.string == nullptr) {
    conversion.length += 8;
  } else if (conversion.seen_precision) {
    conversion.length += conversion.precision;
  } else {
    // A wide string is measured like any other, by its first zero byte.
    conversion.string_length = std::strlen(conversion.string);
    conversion.length += conversion.string_length;
  }
  conversion.done = true;
}

// Whether modifiers before a conversion character are nothing but blank-or-zero padding, a
// width and one of the sizes l, ll and z, in the order in which the system formatter takes
// them. The walk above takes them in any order.
bool is_simple(const char* modifiers, const char* character) {
  while (*modifiers == '-' || *modifiers == '0') ++modifiers;
  while (is_digit(*modifiers)) ++modifiers;
  if (*modifiers == 'z') {
    ++modifiers;
  } else {
    if (*modifiers == 'l') ++modifiers;
    if (*modifiers == 'l') ++modifiers;
  }
  return modifiers == character;
}

// Adds the text of a conversion whose characters lie between `modifiers` and `at_`.
void FormatWalk::spell(const char* modifiers, const Conversion& conversion) {
  const char* const character = at_ - 1;
  if (modifiers != character && !is_simple(modifiers, character)) {
    pieces_.give_up();
    return;
  }
  const bool wide = conversion.extra_long ||
                    (kLongIs64Bit && (conversion.long_size || conversion.pointer_size));
  FormatPieces::Number number = {
      .magnitude = conversion.integer,
      .negative = false,
      .hexadecimal = false,
      .upper_case = false,
      .zero_padding = conversion.zero_padding,
      .left_adjust = conversion.left_adjust,
      .width = conversion.width,
  };
  const bool sized = conversion.long_size || conversion.pointer_size;
  const bool padded_text = conversion.width != 0 || conversion.zero_padding;
  switch (*character) {
    case '%':
      if (modifiers != character) break;
      return pieces_.add("%", 1);
    case 'c':
      if (sized || padded_text) break;
      return pieces_.add_character(static_cast<char>(conversion.integer));
    case 's': {
      // A null string is the system formatter's to name.
      if (sized || conversion.zero_padding || conversion.string == nullptr) break;
      const std::size_t padding = conversion.width > conversion.string_length
                                      ? conversion.width - conversion.string_length
                                      : 0;
      if (padding != 0 && !conversion.left_adjust) pieces_.add_padding(' ', padding);
      pieces_.add(conversion.string, conversion.string_length);
      if (padding != 0 && conversion.left_adjust) pieces_.add_padding(' ', padding);
      return;
    }
    case 'd':
    case 'i': {
      const std::int64_t value = wide ? static_cast<std::int64_t>(conversion.integer)
                                      : static_cast<std::int32_t>(conversion.integer);
      number.negative = value < 0;
      number.magnitude = number.negative ? 0 - static_cast<std::uint64_t>(value)
                                         : static_cast<std::uint64_t>(value);
      return pieces_.add_number(number);
    }
    case 'X':
      number.upper_case = true;
      [[fallthrough]];
    case 'x':
      number.hexadecimal = true;
      [[fallthrough]];
    case 'u':
      return pieces_.add_number(number);
    default:
      break;
  }
  pieces_.give_up();
}

}  // namespace

std::uint64_t groundwork::estimate_format(const char* fmt, va_list args,
                                          FormatPieces& pieces) {
  return FormatWalk(fmt, args, pieces).estimate();
}

void FormatPieces::add(const char* text, std::size_t length) {
  if (!complete_ || count_ == kMaxPieces) {
    give_up();
    return;
  }
  pieces_[count_++] = {text, length};
}

void FormatPieces::add_character(char c) {
  if (scratch_used_ == kScratchSize) return give_up();
  scratch_[scratch_used_] = c;
  add(scratch_ + scratch_used_++, 1);
}

void FormatPieces::add_padding(char fill, std::size_t count) {
  static constexpr char kBlanks[] = "                                ";
  static constexpr char kZeros[] = "00000000000000000000000000000000";
  if (count >= sizeof kBlanks) return give_up();
  add(fill == '0' ? kZeros : kBlanks, count);
}

void FormatPieces::add_number(const Number& number) {
  if (kScratchSize - scratch_used_ < 1 + kLongestNumber) return give_up();
  char* const sign = scratch_ + scratch_used_;
  char* const digits = sign + 1;
  char* const limit = digits + kLongestNumber;
  const int base = number.hexadecimal ? 16 : 10;
  // Most numbers have 32 bits, for which a 32-bit processor divides much faster.
  char* const end =
      number.magnitude <= UINT32_MAX
          ? std::to_chars(digits, limit, static_cast<std::uint32_t>(number.magnitude), base)
                .ptr
          : std::to_chars(digits, limit, number.magnitude, base).ptr;
  scratch_used_ = static_cast<std::size_t>(end - scratch_);
  *sign = '-';
  if (number.upper_case) {
    std::transform(digits, end, digits,
                   [](char c) { return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c; });
  }

  const char* const text = number.negative ? sign : digits;
  const auto length = static_cast<std::size_t>(end - text);
  const std::size_t padding = number.width > length ? number.width - length : 0;
  if (padding == 0) {
    add(text, length);
  } else if (number.left_adjust) {
    add(text, length);
    add_padding(' ', padding);
  } else if (number.zero_padding) {
    if (number.negative) add(sign, 1);
    add_padding('0', padding);
    add(digits, static_cast<std::size_t>(end - digits));
  } else {
    add_padding(' ', padding);
    add(text, length);
  }
}

void FormatPieces::write(char* out) const {
  for (std::size_t i = 0; i < count_; ++i) {
    std::memcpy(out, pieces_[i].text, pieces_[i].length);
    out += pieces_[i].length;
  }
}
