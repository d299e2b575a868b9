// Walks a format to estimate the size of its text. The estimate is generous, and part of
// the contract: it is the size of the blocks that callers get, so no number here may
// change.
//
// SPDX-License-Identifier: MIT

#include "str/format_estimate.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <groundwork/log.h>
#include <groundwork/str.h>

#include "core/built_for.h"

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_str";

constexpr bool kLongIs64Bit = sizeof(long) == 8;
constexpr uint64_t kMargin = 1024;  // reserved for what cannot be measured
constexpr unsigned kNullStringLength = 8;
constexpr unsigned kWideCharacterLength = 16;
constexpr unsigned kErrorTextLength = 256;
constexpr unsigned kSignLength = 1;

// What a character means in a conversion. kPercent and all after it end the conversion.
enum class Part : uint8_t {
  kUnknown,
  kFlag,
  kDigit,  // except "0", which is a flag before a number
  kAsterisk,
  kPoint,
  kSize,
  kPercent,
  kInteger,
  kFloat,
  kCharacter,
  kString,
  kPointer,
  kCount,
  kErrorText,
  kPosition,
  kEnd,  // of the format
};

// Flags of a conversion. The first six are flags in the format, too.
enum : uint16_t {
  kAlternateForm = 1 << 0,
  kZeroPadding = 1 << 1,
  kLeftAdjust = 1 << 2,
  kLocaleGrouping = 1 << 3,
  kAddSpace = 1 << 4,
  kAddSign = 1 << 5,
  kSeenPrecision = 1 << 6,
  kSeenAsterisk = 1 << 7,
  kNegativePrecision = 1 << 8,  // the system formatter ignores it
  kPossibleSign = 1 << 9,
  kHalf = 1 << 10,
  kLong = 1 << 11,
  kExtraLong = 1 << 12,
  kPointerSize = 1 << 13,  // size_t, ptrdiff_t
  kIntmaxSize = 1 << 14,
  kFormatterDiffers = 1 << 15,  // the system formatter takes another argument, or none
};

struct Rule {
  Part part = Part::kUnknown;
  uint8_t length = 0;  // reserved, not counting a sign
  uint16_t flags = 0;  // set by the character
};

// The rules of the characters from " " to "z"; all others are unknown.
constexpr auto kRules = [] {
  constexpr unsigned kHexadecimal = 10;
  constexpr unsigned kUnsigned = 4 + kHexadecimal;
  constexpr unsigned kSigned = 1 + kUnsigned;
  constexpr unsigned kOctal = 2 + kSigned;
  // One digit, the point, the exponent letter, its sign and four digits; two for rounding.
  constexpr unsigned kFloat = 8 + 2;
  std::array<Rule, 'z' - ' ' + 1> rules{};
  const auto set = [&rules](std::string_view characters, Part part, unsigned length,
                            unsigned flags) {
    for (const char c : characters) {
      rules[static_cast<size_t>(c - ' ')] = {part, static_cast<uint8_t>(length),
                                             static_cast<uint16_t>(flags)};
    }
  };
  set("#", Part::kFlag, 0, kAlternateForm);
  set("0", Part::kFlag, 0, kZeroPadding);
  set("-", Part::kFlag, 0, kLeftAdjust);
  set(" ", Part::kFlag, 0, kAddSpace);
  set("+", Part::kFlag, 0, kAddSign);
  set("'", Part::kFlag, 0, kLocaleGrouping);
  set("123456789", Part::kDigit, 0, 0);
  set("*", Part::kAsterisk, 0, kSeenAsterisk);
  set(".", Part::kPoint, 0, kSeenPrecision);
  set("h", Part::kSize, 0, kHalf);  // reserves as much as an int
  set("l", Part::kSize, 0, kLong);
  set("Lq", Part::kSize, 0, kLong | kExtraLong);
  set("zZt", Part::kSize, 0, kPointerSize);
  set("j", Part::kSize, 0, kIntmaxSize);
  set("%", Part::kPercent, 1, 0);
  set("xX", Part::kInteger, kHexadecimal, kPossibleSign);
  set("u", Part::kInteger, kUnsigned, kPossibleSign);
  set("di", Part::kInteger, kSigned, kPossibleSign);
  set("o", Part::kInteger, kOctal, kPossibleSign);
  set("DIOU", Part::kInteger, kOctal, kPossibleSign | kLong | kFormatterDiffers);
  set("eEfgG", Part::kFloat, kFloat, kPossibleSign);
  set("aA", Part::kFloat, 2 + kFloat, kPossibleSign);  // "0x"
  set("c", Part::kCharacter, 1, 0);
  set("C", Part::kCharacter, 1, kLong);
  set("s", Part::kString, 0, 0);
  set("S", Part::kString, 0, kLong);
  set("p", Part::kPointer, sizeof(void*) == 8 ? 20 : 10, kAlternateForm);
  set("P", Part::kPointer, sizeof(void*) == 8 ? 20 : 10,
      kAlternateForm | kFormatterDiffers);
  set("n", Part::kCount, 0, 0);
  set("m", Part::kErrorText, 0, 0);
  set("$", Part::kPosition, 0, kFormatterDiffers);
  return rules;
}();

Rule rule_of(char c) {
  const auto index = static_cast<unsigned char>(c) - static_cast<unsigned>(' ');
  if (index < kRules.size()) return kRules[index];
  return {c == '\0' ? Part::kEnd : Part::kUnknown};
}

// How far the modifiers of a conversion have come in the order that the system formatter
// expects: flags, width, precision, size. The estimate accepts them in any order.
enum class Stage : uint8_t {
  kFlags,
  kWidth,
  kPoint,
  kPrecisionZeros,
  kPrecision,
  kSize,
  kDoubledSize,
  kUnordered,
};

// One parsed conversion.
struct Conversion {
  Part part = Part::kUnknown;
  char character = '\0';
  char size = '\0';  // the last of "h", "l" and the like
  Stage stage = Stage::kFlags;
  bool is_bare = false;  // without modifiers
  unsigned flags = 0;
  uint32_t width = 0;
  uint32_t precision = 0;
  uint64_t length = 0;  // characters reserved

  bool has(unsigned any_of) const { return (flags & any_of) != 0; }
};

// The stage after the modifier `c`.
Stage stage_after(const Conversion& conversion, Part part, char c) {
  const Stage stage = conversion.stage;
  switch (part) {
    case Part::kFlag:
      if (stage == Stage::kFlags) return stage;
      if (c == '0' && (stage == Stage::kPoint || stage == Stage::kPrecisionZeros)) {
        return Stage::kPrecisionZeros;
      }
      return Stage::kUnordered;
    case Part::kDigit:
      if (stage == Stage::kPrecisionZeros) return Stage::kPrecision;
      [[fallthrough]];
    case Part::kAsterisk:
      if (stage == Stage::kFlags) return Stage::kWidth;
      return stage == Stage::kPoint ? Stage::kPrecision : Stage::kUnordered;
    case Part::kPoint:
      return stage <= Stage::kWidth ? Stage::kPoint : Stage::kUnordered;
    case Part::kSize:
      if (stage < Stage::kSize) return Stage::kSize;
      return stage == Stage::kSize && c == conversion.size && (c == 'h' || c == 'l')
                 ? Stage::kDoubledSize
                 : Stage::kUnordered;
    default:
      return Stage::kUnordered;
  }
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_one_of(char c, std::string_view set) {
  return set.find(c) != std::string_view::npos;
}

// Digits before the point of a double with these bits, estimated from its exponent; for a
// small number, roughly the zeros after its point. 0 for zero, subnormals, infinities and
// NaN.
uint64_t integral_digits(uint64_t double_bits) {
  const int exponent = static_cast<int>(double_bits >> 52 & 0x7ff);
  if (exponent < 1 || exponent > 2046) return 0;
  return static_cast<uint64_t>(
      std::abs(static_cast<int>((exponent - 1023) * 0.3010299956639812 + 1)));
}

// Returns whether the system formatter takes the same arguments for a conversion as the
// estimate does. It takes none for unknown conversions. `next` is the format after the
// conversion.
bool formatter_agrees(const Conversion& conversion, const char* next) {
  const bool is_ordered = conversion.stage != Stage::kUnordered;
  if (conversion.part == Part::kPosition) {
    // After a number alone, the formatter takes no argument in sequence, and neither does
    // the estimate, which treats what follows as text. But the formatter does take an
    // asterisk there in sequence.
    const bool is_number =
        conversion.stage == Stage::kWidth ||
        (conversion.stage == Stage::kFlags && conversion.has(kZeroPadding));
    if (!is_number || conversion.has(~unsigned{kZeroPadding | kFormatterDiffers}))
      return false;
    const char* const letter = std::strpbrk(next, "*%diouxXeEfgGaAcCsSpnm");
    return letter != nullptr && !is_one_of(*letter, "*%");
  }
  if (conversion.character == 'I') {
    // For the formatter this is a flag: the next character takes the argument.
    return conversion.is_bare && is_one_of(*next, "diouxXcsp");
  }
  // The formatter may read a long double for "j".
  return is_ordered && !conversion.has(kFormatterDiffers) &&
         !(conversion.size == 'j' && conversion.part == Part::kFloat);
}

class FormatWalk {
 public:
  FormatWalk(const char* fmt, va_list args, FormatPieces& pieces,
             [[maybe_unused]] NarrowedFormat* narrowed)
      : at_(fmt), pieces_(pieces) {
#ifndef __GLIBC__
    narrowed_ = narrowed;
#endif
    va_copy(args_, args);
  }
  FormatWalk(const FormatWalk&) = delete;
  FormatWalk& operator=(const FormatWalk&) = delete;
  ~FormatWalk() {
    va_end(args_);
  }

  uint64_t estimate();

 private:
  // The argument of a conversion; its part determines which member is set.
  union Argument {
    uint64_t integer;
    uint64_t double_bits;
    const char* string;
  };

  bool measure_bare_conversion();
  [[gnu::noinline]] bool measure_simple_conversion();
  // Out of line, so that a run of bare conversions needs no stack frame.
  [[gnu::noinline]] void measure_conversion();
  void read_conversion(Conversion& conversion);
  void read_modifier(char c, const Rule& rule, Conversion& conversion);
  void read_number(Conversion& conversion);
  void take_asterisk(Conversion& conversion);
  Argument take_argument(Conversion& conversion);
  uint64_t take_integer(Conversion& conversion);
  uint64_t take_float(Conversion& conversion);
  const char* take_string(Conversion& conversion);
  bool add_conversion(const Conversion& conversion, const Argument& argument);
  bool add_integer(const Conversion& conversion, uint64_t integer,
                   const FormatPieces::Layout& layout);
  bool add_float(const Conversion& conversion, uint64_t double_bits,
                 const FormatPieces::Layout& layout);

  const char* at_;
  va_list args_;
  FormatPieces& pieces_;
  uint64_t total_ = 1;  // the terminator
  // Whether all arguments so far were taken as the system formatter takes them. If not, the
  // next one may not be a pointer even where one is expected, so strings are no longer
  // measured.
  bool is_current_ = true;
#ifndef __GLIBC__
  NarrowedFormat* narrowed_;
#endif
};

uint64_t FormatWalk::estimate() {
  if (at_ == nullptr) return total_;
  while (*at_ != '\0') {
    if (*at_ == '%') {
      ++at_;
      if (!kForSpeed || !is_current_ || !measure_bare_conversion()) measure_conversion();
      continue;
    }
    const char* const literal = at_;
    while (*at_ != '\0' && *at_ != '%') ++at_;
    const auto length = static_cast<size_t>(at_ - literal);
    total_ += length;
    pieces_.add(literal, length);
  }
  return total_;
}

// Measures the most common conversions without modifiers, which skips parsing. False, with
// nothing taken, for any other.
bool FormatWalk::measure_bare_conversion() {
  using Base = FormatPieces::Base;
  constexpr FormatPieces::Layout kNoLayout = {};
  constexpr auto reserved = [](char c) {
    const Rule& rule = kRules[static_cast<size_t>(c - ' ')];
    return rule.length + ((rule.flags & kPossibleSign) != 0 ? kSignLength : 0);
  };
  switch (*at_) {
    case 's': {
      const char* const string = va_arg(args_, const char*);
      if (string == nullptr) [[unlikely]] {
        // The system formatter knows how a null string is printed.
        total_ += kNullStringLength;
        pieces_.give_up();
        break;
      }
      const size_t length = std::strlen(string);
      total_ += length;
      pieces_.add(string, length);
      break;
    }
    case 'd': {
      const int number = va_arg(args_, int);
      const auto bits = static_cast<unsigned>(number);
      total_ += reserved('d');
      pieces_.add_number(number < 0 ? 0 - bits : bits, number < 0, Base::kDecimal,
                         kNoLayout);
      break;
    }
    case 'c':
      total_ += reserved('c');
      pieces_.add_character(static_cast<char>(va_arg(args_, int)));
      break;
    case 'u':
      total_ += reserved('u');
      pieces_.add_number(va_arg(args_, unsigned), false, Base::kDecimal, kNoLayout);
      break;
    case 'x':
      total_ += reserved('x');
      pieces_.add_number(va_arg(args_, unsigned), false, Base::kHexadecimal, kNoLayout);
      break;
    default:
      // Simple ones begin with "-", a digit or "l"; others up to "9" are refused there.
      return (*at_ <= '9' || *at_ == 'l') && measure_simple_conversion();
  }
  ++at_;
  return true;
}

// The same for a string or an integer with one flag, a width of one or two digits, and an
// "l", each of which may be absent.
bool FormatWalk::measure_simple_conversion() {
  using Base = FormatPieces::Base;
  const char* at = at_;
  FormatPieces::Layout layout = {
      .width = 0, .left_adjust = *at == '-', .zero_padding = *at == '0'};
  if (layout.left_adjust || layout.zero_padding) ++at;
  for (int digits = 0; digits < 2 && is_digit(*at); ++digits) {
    layout.width = 10 * layout.width + static_cast<size_t>(*at++ - '0');
  }
  const bool is_long = *at == 'l';
  if (is_long) ++at;
  const auto reserve = [this, &layout](size_t length) {
    total_ += std::max(length, layout.width);
  };
  const auto reserve_integer = [&](char c) {
    reserve(rule_of(c).length * (is_long ? sizeof(long) / sizeof(int) : 1));
    total_ += kSignLength;
  };

  switch (*at) {
    case 's': {
      if (is_long || layout.zero_padding) return false;
      const char* const string = va_arg(args_, const char*);
      if (string == nullptr) [[unlikely]] {
        reserve(kNullStringLength);
        pieces_.give_up();
        break;
      }
      const size_t length = std::strlen(string);
      reserve(length);
      pieces_.add_text(string, length, layout);
      break;
    }
    case 'd': {
      const long number = is_long ? va_arg(args_, long) : va_arg(args_, int);
      const auto bits = static_cast<unsigned long>(number);
      reserve_integer('d');
      pieces_.add_number(number < 0 ? 0 - bits : bits, number < 0, Base::kDecimal, layout);
      break;
    }
    case 'u':
    case 'x': {
      const unsigned long number =
          is_long ? va_arg(args_, unsigned long) : va_arg(args_, unsigned);
      reserve_integer(*at);
      pieces_.add_number(number, false, *at == 'u' ? Base::kDecimal : Base::kHexadecimal,
                         layout);
      break;
    }
    default:
      return false;
  }
  at_ = at + 1;
  return true;
}

void FormatWalk::measure_conversion() {
  Conversion conversion;
  read_conversion(conversion);
  const Argument argument = take_argument(conversion);
  if (!pieces_.complete() || !add_conversion(conversion, argument)) {
    pieces_.give_up();
    is_current_ = is_current_ && formatter_agrees(conversion, at_);
  }
  uint64_t length = std::max<uint64_t>(conversion.length,
                                       std::max(conversion.precision, conversion.width));
  if (conversion.has(kAlternateForm)) length += 2;
  if (conversion.has(kAddSpace | kAddSign | kPossibleSign)) length += kSignLength;
  total_ += length;
}

// Flags, numbers and sizes may come in any order and number, until a conversion character
// or the end of the format.
void FormatWalk::read_conversion(Conversion& conversion) {
  const char* const begin = at_;
  for (;;) {
    const char c = *at_++;
    const Rule rule = rule_of(c);
    if (rule.part >= Part::kPercent) {
      conversion.part = rule.part;
      conversion.character = c;
      conversion.flags |= rule.flags;
      conversion.length = rule.length;
      conversion.is_bare = at_ - begin == 1;
      if (rule.part == Part::kEnd) [[unlikely]] {
        // Unfinished: counts the characters after the "%", including the terminator.
        conversion.length = static_cast<uint64_t>(at_ - begin);
        --at_;
      }
      return;
    }
    read_modifier(c, rule, conversion);
  }
}

void FormatWalk::read_modifier(char c, const Rule& rule, Conversion& conversion) {
  conversion.stage = stage_after(conversion, rule.part, c);
  switch (rule.part) {
    case Part::kDigit:
      read_number(conversion);
      break;
    case Part::kAsterisk:
      take_asterisk(conversion);
      break;
    case Part::kSize:
      if (c == 'l' && conversion.has(kLong)) conversion.flags |= kExtraLong;
      conversion.size = c;
      break;
    case Part::kUnknown:
      // The system formatter takes a number here, which the rest of this conversion would
      // take, in whole or in part, as its own argument.
      if (is_one_of(c, "FbB")) is_current_ = false;
      // Kept: the conversion continues, and a known character after this one still counts.
      g_log(G_LOG_WARNING, kSource, __LINE__,
            "(): unable to handle `%c' while parsing format", c);
      pieces_.give_up();
      break;
    default:
      break;
  }
  // After the point a "0" is no flag but a digit.
  if (conversion.stage != Stage::kPrecisionZeros) conversion.flags |= rule.flags;
}

// Reads a decimal number whose first digit was taken. If a conversion has several, the
// largest counts; one that does not fit in 32 bits becomes UINT32_MAX.
void FormatWalk::read_number(Conversion& conversion) {
  uint32_t number = 0;
  for (--at_; is_digit(*at_); ++at_) {
    const auto digit = static_cast<uint32_t>(*at_ - '0');
    number = number <= (UINT32_MAX - digit) / 10 ? 10 * number + digit : UINT32_MAX;
  }
  uint32_t& field =
      conversion.has(kSeenPrecision) ? conversion.precision : conversion.width;
  field = std::max(field, number);
}

void FormatWalk::take_asterisk(Conversion& conversion) {
  const int number = is_current_ ? va_arg(args_, int) : 0;
  const auto magnitude =
      number < 0 ? 0 - static_cast<uint32_t>(number) : static_cast<uint32_t>(number);
  if (!conversion.has(kSeenPrecision)) {
    if (number < 0) conversion.flags |= kLeftAdjust;
    conversion.width = std::max(conversion.width, magnitude);
  } else if (number >= 0) {
    conversion.precision = std::max(conversion.precision, magnitude);
  } else {
    conversion.flags |= kNegativePrecision;
  }
}

// Takes the argument of a conversion and reserves its length.
FormatWalk::Argument FormatWalk::take_argument(Conversion& conversion) {
  Argument argument{};
  switch (conversion.part) {
    case Part::kInteger:
      argument.integer = take_integer(conversion);
      break;
    case Part::kFloat:
      argument.double_bits = take_float(conversion);
      break;
    case Part::kCharacter:
      if (conversion.has(kLong)) conversion.length = kWideCharacterLength;
      argument.integer = static_cast<unsigned char>(va_arg(args_, int));
      break;
    case Part::kString:
      argument.string = take_string(conversion);
      break;
    case Part::kPointer:
    case Part::kCount:
      static_cast<void>(va_arg(args_, void*));
      break;
    case Part::kErrorText: {
      // Kept: the copy is never freed; the heap figures of programs have always included
      // it. Reserves the longer of the two lengths.
      const char* const placeholder = g_strdup("ERROR_MSG: G_STR");
      conversion.length = std::max<size_t>(
          kErrorTextLength, placeholder != nullptr ? std::strlen(placeholder) : 0);
      break;
    }
    case Part::kPosition:
      g_log(G_LOG_WARNING, kSource, __LINE__,
            "unable to handle positional parameters(%%n$)");
      total_ += kMargin;
      break;
    default:
      break;
  }
  return argument;
}

// Takes the argument that the system formatter takes. An intmax_t has 64 bits everywhere,
// although a 32-bit build reserves the length of an int for it.
uint64_t FormatWalk::take_integer(Conversion& conversion) {
  const bool reserves_64_bit = conversion.has(
      kLongIs64Bit ? kExtraLong | kLong | kPointerSize | kIntmaxSize : kExtraLong);
  if (reserves_64_bit) conversion.length *= 2;
  return reserves_64_bit || conversion.has(kIntmaxSize) ? va_arg(args_, uint64_t)
                                                        : va_arg(args_, uint32_t);
}

uint64_t FormatWalk::take_float(Conversion& conversion) {
  constexpr uint32_t kDigits = 24;  // the least that is reserved for a number
  conversion.length += std::max(kDigits, conversion.precision);
  uint64_t double_bits;
  if (conversion.has(kExtraLong)) {
    g_log(G_LOG_WARNING, kSource, __LINE__,
          "(): unable to handle long double, collecting double only");
    // Kept: measured as if its first eight bytes were a double. But it is taken as a whole,
    // so that the arguments after it are the right ones.
    const long double value = va_arg(args_, long double);
    std::memcpy(&double_bits, &value, sizeof double_bits);
  } else {
    double_bits = std::bit_cast<uint64_t>(va_arg(args_, double));
  }
  if (conversion.character == 'f') conversion.length += integral_digits(double_bits);
  if (conversion.has(kLocaleGrouping)) conversion.length *= 2;
  return double_bits;
}

const char* FormatWalk::take_string(Conversion& conversion) {
  if (conversion.has(kLong)) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "(): unable to handle wide char strings");
    total_ += kMargin;
  }
  const char* const string = is_current_ ? va_arg(args_, const char*) : "";
  if (string == nullptr) {
    conversion.length = kNullStringLength;
#ifndef __GLIBC__
    if (narrowed_ != nullptr && conversion.has(kLong)) narrowed_->narrow(at_ - 1);
#endif
  } else if (conversion.has(kSeenPrecision)) {
    conversion.length = conversion.precision;
  } else {
    // A wide string is measured like any other, by its first zero byte.
    conversion.length = std::strlen(string);
  }
  return string;
}

// Adds the text of a conversion to the pieces. False for all but the most common forms,
// which are left to the system formatter.
bool FormatWalk::add_conversion(const Conversion& conversion, const Argument& argument) {
  constexpr unsigned kSupported = kLeftAdjust | kZeroPadding | kSeenAsterisk |
                                  kSeenPrecision | kPossibleSign | kLong | kExtraLong |
                                  kPointerSize;
  if (conversion.has(~kSupported) || conversion.stage == Stage::kUnordered ||
      (conversion.size != '\0' && conversion.size != 'l' && conversion.size != 'z')) {
    return false;
  }
  const bool has_precision = conversion.has(kSeenPrecision);
  const bool has_size = conversion.size != '\0';
  const FormatPieces::Layout layout = {
      .width = conversion.width,
      .left_adjust = conversion.has(kLeftAdjust),
      .zero_padding = conversion.has(kZeroPadding),
  };
  switch (conversion.part) {
    case Part::kPercent:
      if (!conversion.is_bare) return false;
      pieces_.add(at_ - 1, 1);
      return true;
    case Part::kCharacter:
      if (!conversion.is_bare || conversion.has(kLong)) return false;
      pieces_.add_character(static_cast<char>(argument.integer));
      return true;
    case Part::kString: {
      // The system formatter knows how a null string is printed.
      if (has_size || conversion.has(kLong | kZeroPadding) || argument.string == nullptr) {
        return false;
      }
      const size_t length = has_precision ? strnlen(argument.string, conversion.precision)
                                          : static_cast<size_t>(conversion.length);
      pieces_.add_text(argument.string, length, layout);
      return true;
    }
    case Part::kInteger:
      return !has_precision && add_integer(conversion, argument.integer, layout);
    case Part::kFloat:
      return !has_size && add_float(conversion, argument.double_bits, layout);
    default:
      return false;
  }
}

bool FormatWalk::add_integer(const Conversion& conversion, uint64_t integer,
                             const FormatPieces::Layout& layout) {
  using Base = FormatPieces::Base;
  switch (conversion.character) {
    case 'd':
    case 'i': {
      const bool is_64_bit =
          conversion.has(kLongIs64Bit ? kExtraLong | kLong | kPointerSize : kExtraLong);
      const int64_t value =
          is_64_bit ? static_cast<int64_t>(integer) : static_cast<int32_t>(integer);
      const auto bits = static_cast<uint64_t>(value);
      pieces_.add_number(value < 0 ? 0 - bits : bits, value < 0, Base::kDecimal, layout);
      return true;
    }
    case 'u':
      pieces_.add_number(integer, false, Base::kDecimal, layout);
      return true;
    case 'x':
      pieces_.add_number(integer, false, Base::kHexadecimal, layout);
      return true;
    case 'X':
      pieces_.add_number(integer, false, Base::kUpperHexadecimal, layout);
      return true;
    default:
      return false;
  }
}

bool FormatWalk::add_float(const Conversion& conversion, uint64_t double_bits,
                           const FormatPieces::Layout& layout) {
  if constexpr (!kForSpeed) return false;
  const bool is_general = conversion.character == 'g';
  if (!is_general && conversion.character != 'f') return false;
  constexpr unsigned kUsualPrecision = 6;
  pieces_.add_float(double_bits,
                    conversion.has(kSeenPrecision) ? conversion.precision : kUsualPrecision,
                    is_general, layout);
  return true;
}

}  // namespace

uint64_t groundwork::estimate_format(const char* fmt, va_list args, FormatPieces& pieces,
                                     NarrowedFormat* narrowed) {
  return FormatWalk(fmt, args, pieces, narrowed).estimate();
}
