// Formatted allocation with formats and matching arguments: the text is the system
// formatter's, the block has the size that the rules of the estimate give, and the text
// fits into it.
//
// SPDX-License-Identifier: MIT

#include <groundwork/log.h>
#include <groundwork/str.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/str/lost_copies.h"
#include "fuzz/str/sanitizer_options.h"
#include "fuzz/support/buffer.h"
#include "fuzz/support/check.h"
#include "fuzz/support/flat_arguments.h"
#include "fuzz/support/heap.h"
#include "fuzz/support/input.h"

namespace {

// Where "%n" stores; as wide as its widest form.
using Stored = std::vector<int64_t>;

// A format and arguments for it, both made from the input, and the estimate of its length.
class Case {
 public:
  explicit Case(fuzz::Input& input) : input_(input) {
    stored_.resize(kMostConversions);
    const std::string pattern = input.bytes(input.byte());
    fuzz::Input rest(reinterpret_cast<const uint8_t*>(pattern.data()), pattern.size());
    int conversions = 0;
    while (!rest.empty()) {
      const auto c = static_cast<char>(rest.byte());
      if (c == '\0') continue;
      if (c == '%' && conversions++ < kMostConversions) {
        add_conversion(rest);
      } else if (c != '%') {
        format_ += c;
        ++estimate_;
      }
    }
  }

  const char* format() const { return format_.c_str(); }
  const fuzz::FlatArguments& arguments() const { return arguments_; }
  size_t estimate() const { return estimate_; }
  // A negative precision from the arguments counts as 0 in the estimate, but not for the
  // formatter, which then gives the whole text.
  bool may_exceed() const { return may_exceed_; }

  // How many "%m" there are.
  int error_texts() const { return error_texts_; }

  Stored& stored() { return stored_; }

 private:
  static constexpr int kMostConversions = 24;

  struct Conversion {
    size_t width = 0;
    size_t precision = 0;
    bool has_precision = false;
    bool negative_precision = false;
    bool alternate = false;
    bool sign = false;  // asked for, or possible
    bool grouping = false;
    bool wide = false;  // 64 bits
    size_t length = 0;
  };

  // Takes flags, width, precision, size and letter from the pattern, in the order that the
  // formatter wants, and skips what does not fit.
  void add_conversion(fuzz::Input& rest) {
    Conversion spec;
    format_ += '%';
    auto c = static_cast<char>(rest.byte());
    for (; c != '\0' && std::strchr("#0- +'", c) != nullptr;
         c = static_cast<char>(rest.byte())) {
      format_ += c;
      if (c == '#') spec.alternate = true;
      if (c == ' ' || c == '+') spec.sign = true;
      if (c == '\'') spec.grouping = true;
    }
    if (c == '*') {
      const int width = add_star();
      spec.width = static_cast<size_t>(std::abs(width));
      c = static_cast<char>(rest.byte());
    } else if (c >= '1' && c <= '9') {
      spec.width = add_number(rest, c);
    }
    if (c == '.') {
      add_precision(rest, c, spec);
    }
    const std::string size = size_of(rest, c);
    add_letter(c, size, spec);
  }

  void add_precision(fuzz::Input& rest, char& c, Conversion& spec) {
    format_ += '.';
    spec.has_precision = true;
    c = static_cast<char>(rest.byte());
    if (c == '*') {
      const int precision = add_star();
      spec.negative_precision = precision < 0;
      if (precision > 0) spec.precision = static_cast<size_t>(precision);
      c = static_cast<char>(rest.byte());
    } else if (c >= '0' && c <= '9') {
      spec.precision = add_number(rest, c);
    }
  }

  // A decimal number of at most three digits, as the format spells it.
  size_t add_number(fuzz::Input& rest, char& c) {
    size_t number = 0;
    for (; c >= '0' && c <= '9'; c = static_cast<char>(rest.byte())) {
      if (number > 99) continue;
      number = number * 10 + static_cast<size_t>(c - '0');
      format_ += c;
    }
    return number;
  }

  int add_star() {
    format_ += '*';
    const int number = static_cast<int16_t>(input_.word()) % 700;
    arguments_.add(static_cast<uint32_t>(number));
    return number;
  }

  static std::string size_of(fuzz::Input& rest, char& c) {
    std::string size;
    while (c != '\0' && std::strchr("hlqLzt", c) != nullptr) {
      if (size.empty() || (size.size() == 1 && size[0] == c && (c == 'h' || c == 'l'))) {
        size += c;
      }
      c = static_cast<char>(rest.byte());
    }
    return size;
  }

  // Any letter is mapped to a conversion that exists.
  void add_letter(char c, const std::string& size, Conversion& spec) {
    constexpr std::string_view kLetters = "diouxXeEfgGaAcspnm%";
    if (c == '\0' || kLetters.find(c) == kLetters.npos) {
      c = kLetters[static_cast<unsigned char>(c) % kLetters.size()];
    }
    if (std::strchr("diouxXn", c) != nullptr) {
      format_ += size;
      spec.wide = size == "ll" || size == "L" || size == "q";
    }
    format_ += c;
    switch (c) {
      case 'd':
      case 'i':
        add_integer(spec, 15);
        break;
      case 'o':
        add_integer(spec, 17);
        break;
      case 'u':
        add_integer(spec, 14);
        break;
      case 'x':
      case 'X':
        add_integer(spec, 10);
        break;
      case 'a':
      case 'A':
        add_real(spec, 2, false);
        break;
      case 'f':
        add_real(spec, 0, true);
        break;
      case 'e':
      case 'E':
      case 'g':
      case 'G':
        add_real(spec, 0, false);
        break;
      case 'c':
        spec.length = 1;
        arguments_.add(static_cast<uint32_t>(input_.int32()));
        break;
      case 's':
        add_string(spec);
        break;
      case 'p':
        spec.alternate = true;
        spec.length = 10;
        arguments_.add(static_cast<uint32_t>(input_.int32()));
        break;
      case 'n':
        arguments_.add(&stored_[stored_used_++]);
        break;
      case 'm':
        spec.length = 256;
        ++error_texts_;
        break;
      default:
        spec.length = 1;
        break;
    }
    estimate_ += std::max({spec.length, spec.precision, spec.width}) +
                 (spec.alternate ? 2U : 0U) + (spec.sign ? 1U : 0U);
  }

  void add_integer(Conversion& spec, size_t length) {
    spec.sign = true;
    spec.length = spec.wide ? 2 * length : length;
    if (spec.wide) {
      arguments_.add(static_cast<uint64_t>(input_.int64()));
    } else {
      arguments_.add(static_cast<uint32_t>(input_.int32()));
    }
  }

  void add_real(Conversion& spec, size_t prefix, bool fixed) {
    const int64_t bits = input_.int64();
    double number;
    std::memcpy(&number, &bits, sizeof number);
    arguments_.add(number);
    spec.sign = true;
    spec.length = prefix + 8 + std::max<size_t>(24, spec.precision);
    const auto exponent = static_cast<int>(bits >> 52 & 0x7ff);
    if (fixed && exponent >= 1 && exponent <= 2046) {
      const double digits = (exponent - 1023) * 0.3010299956639812 + 1;
      spec.length += static_cast<size_t>(std::abs(static_cast<int>(digits)));
    }
    spec.length += 2;
    if (spec.grouping) spec.length *= 2;
  }

  void add_string(Conversion& spec) {
    const size_t length = input_.byte();
    if (length == 0xff) {
      arguments_.add(static_cast<void*>(nullptr));
      spec.length = 8;
      return;
    }
    std::string text = input_.bytes(length);
    std::replace(text.begin(), text.end(), '\0', '0');
    // As much as the precision lets a reader see need not be terminated.
    const bool bounded = spec.has_precision && !spec.negative_precision;
    if (!bounded || text.size() < spec.precision) text += '\0';
    strings_.emplace_back(std::string_view(text));
    arguments_.add(strings_.back().data());
    spec.length = spec.has_precision ? spec.precision : text.size() - 1;
    may_exceed_ = may_exceed_ || spec.negative_precision;
  }

  fuzz::Input& input_;
  std::string format_;
  fuzz::FlatArguments arguments_;
  std::deque<fuzz::Buffer> strings_;
  Stored stored_;
  size_t stored_used_ = 0;
  size_t estimate_ = 1;
  bool may_exceed_ = false;
  int error_texts_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  g_debug_set_level2(99);
  fuzz::Input input(data, size);
  const int error = input.byte();  // for "%m"
  Case made(input);

  std::vector<char> expected(made.estimate() + 70000);
  const int length = made.arguments().with_list([&](std::va_list list) {
    errno = error;
    return std::vsnprintf(expected.data(), expected.size(), made.format(), list);
  });
#ifdef __GLIBC__
  REQUIRE(length >= 0);
#endif
  REQUIRE(length < static_cast<int>(expected.size()));
  const Stored stored = made.stored();
  std::fill(made.stored().begin(), made.stored().end(), 0);

  char* const text = made.arguments().with_list([&](std::va_list list) {
    return fuzz::without_lost_copies(made.error_texts(), [&] {
      errno = error;
      return g_strdup_vprintf(made.format(), list);
    });
  });
  REQUIRE(text != nullptr);
  if (length < 0) {  // a format that musl's formatter refuses; ours may know it
    std::free(text);
    return 0;
  }
  const auto needed = static_cast<size_t>(length) + 1;
  REQUIRE(std::memcmp(text, expected.data(), needed) == 0);
  REQUIRE(made.stored() == stored);
  if (!made.may_exceed()) REQUIRE(needed <= made.estimate());
  if (!fuzz::is_block_of(text, std::max(needed, made.estimate()))) {
    fuzz::fail(__FILE__, __LINE__,
               "another size than " + std::to_string(made.estimate()) + " for " +
                   fuzz::shown(std::string(made.format())));
  }
  // Zero-filled after the text.
  for (size_t i = needed; i < made.estimate(); ++i) REQUIRE(text[i] == '\0');
  std::free(text);
  return 0;
}
