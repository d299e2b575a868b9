// The walk over a format that estimates the size of its text. The estimate is generous and
// fixed: it is the size of the blocks that callers get, so no number here may change.
//
// SPDX-License-Identifier: MIT

#include "str/format_estimate.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <groundwork/log.h>
#include <groundwork/str.h>

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_str";

constexpr bool kLongIs64Bit = sizeof(long) == 8;
constexpr std::uint64_t kMargin = 1024;  // for what cannot be measured

// Lengths reserved, without the place of a sign that every number gets besides.
constexpr unsigned kHexadecimalLength = 10;
constexpr unsigned kUnsignedLength = 4 + kHexadecimalLength;
constexpr unsigned kSignedLength = 1 + kUnsignedLength;
constexpr unsigned kOctalLength = 2 + kSignedLength;
constexpr unsigned kNullStringLength = 8;
constexpr unsigned kSignLength = 1;

// Flags of a conversion.
enum : unsigned {
  kAlternateForm = 1 << 0,
  kZeroPadding = 1 << 1,
  kLeftAdjust = 1 << 2,
  kLocaleGrouping = 1 << 3,
  kAddSpace = 1 << 4,
  kAddSign = 1 << 5,
  kPossibleSign = 1 << 6,
  kSeenPrecision = 1 << 7,
  kLong = 1 << 8,
  kExtraLong = 1 << 9,
  kPointerSize = 1 << 10,  // size_t, ptrdiff_t
  kIntmaxSize = 1 << 11,
  kDone = 1 << 12,
};

// One conversion as far as it was read. Small on purpose: there is a new one for each.
struct Conversion {
  unsigned flags = 0;
  std::uint32_t width = 0;
  std::uint32_t precision = 0;
  std::uint64_t length = 0;  // characters reserved; a length finishes the conversion

  bool has(unsigned any_of) const { return (flags & any_of) != 0; }
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

bool is_one_of(char c, std::string_view set) {
  return set.find(c) != std::string_view::npos;
}

// Where a width or a precision ends that may begin here.
const char* behind_number(const char* part) {
  if (*part == '*') return part + 1;
  while (is_digit(*part)) ++part;
  return part;
}

// Whether the modifiers before a conversion character are nothing but padding, a width and
// one of the sizes l, ll and z, in the order in which the system formatter takes them. The
// walk below takes them in any order.
bool is_simple(const char* modifiers, const char* character) {
  while (*modifiers == '-' || *modifiers == '0') ++modifiers;
  modifiers = behind_number(modifiers);
  if (*modifiers == 'z') {
    ++modifiers;
  } else {
    if (*modifiers == 'l') ++modifiers;
    if (*modifiers == 'l') ++modifiers;
  }
  return modifiers == character;
}

// Whether the parts of a conversion stand in the order that the system formatter wants, and
// mean the same argument to it.
bool is_well_formed(const char* modifiers, const char* character) {
  const char* part = modifiers;
  while (is_one_of(*part, "-+ #0'")) ++part;
  part = behind_number(part);
  if (*part == '.') part = behind_number(part + 1);
  const char size = *part;
  if (is_one_of(size, "hlLqzZtj")) ++part;
  if ((size == 'h' || size == 'l') && *part == size) ++part;
  // It may read a long double for "j".
  return part == character && !(size == 'j' && is_one_of(*character, "eEfgGaA"));
}

// Whether the system formatter takes the same arguments for a conversion as the walk below.
// It takes none for what it does not know.
bool formatter_agrees(const char* modifiers, const char* character) {
  switch (*character) {
    case '$': {
      // Behind a number: the argument is not taken in turn, and the walk takes none either.
      // What follows is text to the walk, but a width there is taken in turn.
      const char* const next = std::strpbrk(character, "*%diouxXeEfgGaAcCsSpnm");
      return is_digit(*modifiers) && behind_number(modifiers) == character &&
             next != nullptr && !is_one_of(*next, "*%");
    }
    case 'D':
    case 'O':
    case 'U':
    case 'P':
      return false;
    case 'I':  // a flag to the formatter: the next character takes the argument
      return modifiers == character && is_one_of(character[1], "diouxXcsp");
    default:
      return modifiers == character || is_well_formed(modifiers, character);
  }
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
  bool measure_bare_conversion();
  void measure_conversion();
  void take(char c, Conversion& conversion);
  void take_number(Conversion& conversion);
  void take_asterisk(Conversion& conversion);
  void take_integer(Conversion& conversion);
  void take_float(char c, Conversion& conversion);
  void take_string(Conversion& conversion);
  bool spell(const char* modifiers, const char* character, const Conversion& conversion);

  const char* at_;
  va_list args_;
  FormatPieces& pieces_;
  std::uint64_t total_ = 1;  // the terminator
  // Whether all arguments were taken as the system formatter takes them. Where not, the
  // next one may be no pointer although it should: strings are not measured any more.
  bool in_step_ = true;
  // The argument of the conversion read last.
  std::uint64_t integer_;
  const char* string_;
  std::size_t string_length_;  // where no precision was seen
};

std::uint64_t FormatWalk::estimate() {
  if (at_ == nullptr) return total_;
  while (*at_ != '\0') {
    if (*at_ == '%') {
      ++at_;
      if (!in_step_ || !measure_bare_conversion()) measure_conversion();
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

// The commonest conversions without a modifier, sparing them a Conversion; false, with
// nothing taken, where it is another one.
bool FormatWalk::measure_bare_conversion() {
  constexpr FormatPieces::Layout kNoLayout = {};
  switch (*at_) {
    case 's': {
      const char* const string = va_arg(args_, const char*);
      if (string == nullptr) [[unlikely]] {
        // It has a name that the system formatter knows.
        total_ += kNullStringLength;
        pieces_.give_up();
        break;
      }
      const std::size_t length = std::strlen(string);
      total_ += length;
      pieces_.add(string, length);
      break;
    }
    case 'd': {
      const int number = va_arg(args_, int);
      const auto bits = static_cast<unsigned>(number);
      total_ += kSignedLength + kSignLength;
      pieces_.add_number(number < 0 ? 0 - bits : bits, number < 0,
                         FormatPieces::Base::kDecimal, kNoLayout);
      break;
    }
    case 'c':
      total_ += 1;
      pieces_.add_character(static_cast<char>(va_arg(args_, int)));
      break;
    case 'u':
      total_ += kUnsignedLength + kSignLength;
      pieces_.add_number(va_arg(args_, unsigned), false, FormatPieces::Base::kDecimal,
                         kNoLayout);
      break;
    case 'x':
      total_ += kHexadecimalLength + kSignLength;
      pieces_.add_number(va_arg(args_, unsigned), false, FormatPieces::Base::kHexadecimal,
                         kNoLayout);
      break;
    default:
      return false;
  }
  ++at_;
  return true;
}

void FormatWalk::measure_conversion() {
  const char* const modifiers = at_;
  Conversion conversion;
  while (!conversion.has(kDone) && conversion.length == 0) {
    const char c = *at_++;
    if (c == '\0') [[unlikely]] {
      // Unfinished: the characters behind the "%" count, the terminator with them. The walk
      // ends on it.
      conversion.length = static_cast<std::uint64_t>(at_ - modifiers);
      --at_;
      pieces_.give_up();
      break;
    }
    take(c, conversion);
  }
  const char* const character = at_ - 1;
  if (!pieces_.complete() || !spell(modifiers, character, conversion)) {
    pieces_.give_up();
    in_step_ = in_step_ && formatter_agrees(modifiers, character);
  }

  std::uint64_t length = std::max<std::uint64_t>(
      conversion.length, std::max(conversion.precision, conversion.width));
  if (conversion.has(kAlternateForm)) length += 2;
  if (conversion.has(kAddSpace | kAddSign | kPossibleSign)) length += kSignLength;
  total_ += length;
}

// Flags, numbers and sizes may come in any order and number; a conversion character, which
// takes its argument and adds a length, ends the conversion.
void FormatWalk::take(char c, Conversion& conversion) {
  switch (c) {
    case '#':
      conversion.flags |= kAlternateForm;
      break;
    case '0':
      conversion.flags |= kZeroPadding;
      break;
    case '-':
      conversion.flags |= kLeftAdjust;
      break;
    case ' ':
      conversion.flags |= kAddSpace;
      break;
    case '+':
      conversion.flags |= kAddSign;
      break;
    case '\'':
      conversion.flags |= kLocaleGrouping;
      break;
    case '.':
      conversion.flags |= kSeenPrecision;
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
    case 'h':  // a smaller number needs no smaller room
      break;
    case 'l':
      conversion.flags |= conversion.has(kLong) ? kExtraLong : kLong;
      break;
    case 'L':
    case 'q':
      conversion.flags |= kLong | kExtraLong;
      break;
    case 'z':
    case 'Z':
    case 't':
      conversion.flags |= kPointerSize;
      break;
    case 'j':
      conversion.flags |= kIntmaxSize;
      break;

    case '%':
      conversion.length += 1;
      break;
    case 'D':
    case 'I':
    case 'O':
    case 'U':
      conversion.flags |= kLong;
      [[fallthrough]];
    case 'o':
      conversion.length += kOctalLength;
      take_integer(conversion);
      break;
    case 'd':
    case 'i':
      conversion.length += kSignedLength;
      take_integer(conversion);
      break;
    case 'u':
      conversion.length += kUnsignedLength;
      take_integer(conversion);
      break;
    case 'x':
    case 'X':
      conversion.length += kHexadecimalLength;
      take_integer(conversion);
      break;
    case 'a':
    case 'A':
      conversion.length += 2;  // "0x"
      [[fallthrough]];
    case 'e':
    case 'E':
    case 'f':
    case 'g':
    case 'G':
      take_float(c, conversion);
      break;
    case 'C':
      conversion.flags |= kLong;
      [[fallthrough]];
    case 'c':
      conversion.length += conversion.has(kLong) ? 16 : 1;
      integer_ = static_cast<unsigned char>(va_arg(args_, int));
      break;
    case 'S':
      conversion.flags |= kLong;
      [[fallthrough]];
    case 's':
      take_string(conversion);
      break;
    case 'p':
    case 'P':
      conversion.flags |= kAlternateForm;
      conversion.length += sizeof(void*) == 8 ? 20 : 10;
      [[fallthrough]];
    case 'n':
      static_cast<void>(va_arg(args_, void*));
      conversion.flags |= kDone;
      break;
    case 'm': {
      // Kept: the copy is not freed; the heap figures of programs have always shown it. The
      // longer one of the two is reserved, which is 256.
      const char* const placeholder = g_strdup("ERROR_MSG: G_STR");
      conversion.length +=
          std::max<std::size_t>(256, placeholder != nullptr ? std::strlen(placeholder) : 0);
      break;
    }
    case '$':
      g_log(G_LOG_WARNING, kSource, __LINE__,
            "unable to handle positional parameters(%%n$)");
      total_ += kMargin;
      conversion.flags |= kDone;
      break;
    default:
      // The system formatter takes a number here, and what follows in this conversion would
      // take it, or a part of it, for its own argument.
      if (is_one_of(c, "FbB")) in_step_ = false;
      // Kept: the conversion goes on, and a known character behind this one still counts.
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
      conversion.has(kSeenPrecision) ? conversion.precision : conversion.width;
  field = std::max(field, static_cast<std::uint32_t>(number));
}

void FormatWalk::take_asterisk(Conversion& conversion) {
  const int number = in_step_ ? va_arg(args_, int) : 0;
  const auto magnitude = number < 0 ? 0 - static_cast<std::uint32_t>(number)
                                    : static_cast<std::uint32_t>(number);
  if (!conversion.has(kSeenPrecision)) {
    if (number < 0) conversion.flags |= kLeftAdjust;
    conversion.width = std::max(conversion.width, magnitude);
  } else if (number >= 0) {
    conversion.precision = std::max(conversion.precision, magnitude);
  }
}

// Takes what the system formatter takes. An intmax_t has 64 bits everywhere, although a
// 32-bit build reserves the length of an int for it.
void FormatWalk::take_integer(Conversion& conversion) {
  conversion.flags |= kPossibleSign;
  const bool reserves_64_bit = conversion.has(
      kLongIs64Bit ? kExtraLong | kLong | kPointerSize | kIntmaxSize : kExtraLong);
  if (reserves_64_bit) conversion.length *= 2;
  integer_ = reserves_64_bit || conversion.has(kIntmaxSize) ? va_arg(args_, std::uint64_t)
                                                            : va_arg(args_, std::uint32_t);
}

void FormatWalk::take_float(char c, Conversion& conversion) {
  conversion.flags |= kPossibleSign;
  // One digit, the point, the digits, the exponent letter, its sign and four digits.
  conversion.length += 8 + std::max<std::uint64_t>(24, conversion.precision);
  std::uint64_t double_bits;
  if (conversion.has(kExtraLong)) {
    g_log(G_LOG_WARNING, kSource, __LINE__,
          "(): unable to handle long double, collecting double only");
    // Kept: measured as if its first eight bytes were a double. Taken whole, though, so
    // that the arguments behind it stay in step.
    const long double value = va_arg(args_, long double);
    std::memcpy(&double_bits, &value, sizeof double_bits);
  } else {
    double_bits = std::bit_cast<std::uint64_t>(va_arg(args_, double));
  }
  if (c == 'f') conversion.length += integral_digits(double_bits);
  conversion.length += 2;  // rounding
  if (conversion.has(kLocaleGrouping)) conversion.length *= 2;
}

void FormatWalk::take_string(Conversion& conversion) {
  conversion.flags |= kDone;
  if (conversion.has(kLong)) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "(): unable to handle wide char strings");
    total_ += kMargin;
  }
  string_ = in_step_ ? va_arg(args_, const char*) : "";
  if (string_ == nullptr) {
    conversion.length += kNullStringLength;
  } else if (conversion.has(kSeenPrecision)) {
    conversion.length += conversion.precision;
  } else {
    // A wide string is measured like any other, by its first zero byte.
    string_length_ = std::strlen(string_);
    conversion.length += string_length_;
  }
}

// Adds the text of the conversion with these modifiers and this character; false when that
// is the system formatter's business.
bool FormatWalk::spell(const char* modifiers, const char* character,
                       const Conversion& conversion) {
  if (modifiers != character && !is_simple(modifiers, character)) return false;

  const FormatPieces::Layout layout = {
      .width = conversion.width,
      .left_adjust = conversion.has(kLeftAdjust),
      .zero_padding = conversion.has(kZeroPadding),
  };
  switch (*character) {
    case '%':
      if (modifiers != character) return false;
      pieces_.add(character, 1);
      return true;
    case 's':
      // A null string has a name that the system formatter knows.
      if (conversion.has(kLong | kPointerSize | kZeroPadding) || string_ == nullptr) {
        return false;
      }
      pieces_.add_text(string_, string_length_, layout);
      return true;
    case 'd':
    case 'i': {
      const bool is_64_bit =
          conversion.has(kLongIs64Bit ? kExtraLong | kLong | kPointerSize : kExtraLong);
      const std::int64_t value = is_64_bit ? static_cast<std::int64_t>(integer_)
                                           : static_cast<std::int32_t>(integer_);
      const bool negative = value < 0;
      const auto bits = static_cast<std::uint64_t>(value);
      pieces_.add_number(negative ? 0 - bits : bits, negative, FormatPieces::Base::kDecimal,
                         layout);
      return true;
    }
    case 'u':
      pieces_.add_number(integer_, false, FormatPieces::Base::kDecimal, layout);
      return true;
    case 'x':
      pieces_.add_number(integer_, false, FormatPieces::Base::kHexadecimal, layout);
      return true;
    case 'X':
      pieces_.add_number(integer_, false, FormatPieces::Base::kUpperHexadecimal, layout);
      return true;
    default:
      return false;
  }
}

}  // namespace

std::uint64_t groundwork::estimate_format(const char* fmt, va_list args,
                                          FormatPieces& pieces) {
  return FormatWalk(fmt, args, pieces).estimate();
}
