// The digits of a double, as "%f" and "%g" print them.
//
// A double from 2^-11 to 2^32 is exactly a 32-bit integer and a 64-bit binary fraction. The
// fraction times 10^n has the n digits after the point above its binary point, and below it
// what rounding depends on. So every digit is correct, and ties round to even, as with the
// system formatter, which has to handle all other doubles as well.
//
// SPDX-License-Identifier: MIT

#include "str/format_double.h"

#include <array>
#include <charconv>

#include <langinfo.h>

using namespace groundwork;

namespace {

constexpr unsigned kMostDecimals = 9;

constexpr std::array<uint32_t, kMostDecimals + 1> kPowersOfTen = {
    1, 10, 100, 1000, 10'000, 100'000, 1'000'000, 10'000'000, 100'000'000, 1'000'000'000};

// 0.1, 0.01, 0.001 as fractions of 2^64, rounded up.
constexpr std::array<uint64_t, 3> kTenths = {UINT64_MAX / 10 + 1, UINT64_MAX / 100 + 1,
                                             UINT64_MAX / 1000 + 1};

struct Fixed {
  uint32_t integer;
  uint64_t fraction;  // of 2^64
};

// False if the number does not fit.
bool to_fixed(uint64_t double_bits, Fixed& fixed) {
  constexpr unsigned kBias = 1023;
  constexpr unsigned kFractionBits = 52;
  constexpr uint64_t kImplicitBit = uint64_t{1} << kFractionBits;
  const uint64_t magnitude = double_bits << 1 >> 1;
  if (magnitude == 0) {
    fixed = {0, 0};
    return true;
  }
  const auto exponent = static_cast<unsigned>(magnitude >> kFractionBits);
  if (exponent < kBias - 11 || exponent >= kBias + 32) return false;
  const uint64_t significand = (magnitude & (kImplicitBit - 1)) | kImplicitBit;
  const unsigned below_point = kFractionBits + kBias - exponent;  // bits, 21 to 63
  fixed.integer = static_cast<uint32_t>(significand >> below_point);
  fixed.fraction = significand << (64 - below_point);
  return true;
}

// A number rounded to some decimal places; a carry goes into the integer.
struct Rounded {
  uint64_t integer;
  uint32_t places;
};

Rounded rounded(const Fixed& fixed, unsigned decimals) {
  const uint32_t power = kPowersOfTen[decimals];
  const uint64_t low = (fixed.fraction & UINT32_MAX) * power;
  const uint64_t high = (fixed.fraction >> 32) * power + (low >> 32);
  Rounded result = {fixed.integer, static_cast<uint32_t>(high >> 32)};
  const uint64_t rest = high << 32 | (low & UINT32_MAX);
  constexpr uint64_t kHalf = uint64_t{1} << 63;
  const uint32_t last = decimals == 0 ? fixed.integer : result.places;
  if (rest < kHalf || (rest == kHalf && last % 2 == 0)) return result;
  if (++result.places == power) {
    result.places = 0;
    ++result.integer;
  }
  return result;
}

// The number of digits that "%g" prints after the point; more than kMostDecimals if it
// prints an exponent instead, or if that cannot be decided here.
unsigned general_decimals(const Fixed& fixed, unsigned digits) {
  if (fixed.integer != 0) {
    unsigned before_point = 1;
    while (before_point < 10 && fixed.integer >= kPowersOfTen[before_point]) ++before_point;
    return before_point <= digits ? digits - before_point : kMostDecimals + 1;
  }
  if (fixed.fraction == 0) return 0;
  unsigned zeros = 0;
  while (zeros < kTenths.size() && fixed.fraction < kTenths[zeros]) ++zeros;
  return digits + zeros;
}

// Each other rounding mode changes one of the sums. The stores to volatile variables round
// what a wide register holds.
bool rounds_to_nearest() {
  constexpr float kTiny = 0x1p-25F;
  volatile float one = 1.0F;
  volatile float above = one + kTiny;
  volatile float below = one - kTiny;
  return above == 1.0F && below == 1.0F;
}

bool has_plain_point() {
  const char* const point = nl_langinfo(RADIXCHAR);
  return point[0] == '.' && point[1] == '\0';
}

char* format_places(char* out, uint32_t places, unsigned decimals) {
  for (char* digit = out + decimals; digit != out; places /= 10) {
    *--digit = static_cast<char>('0' + places % 10);
  }
  return out + decimals;
}

}  // namespace

char* groundwork::format_double(char* out, uint64_t double_bits, unsigned precision,
                                bool general) {
  Fixed fixed;
  if (!to_fixed(double_bits, fixed)) return nullptr;
  const unsigned digits = general && precision == 0 ? 1 : precision;
  if (digits > kMostDecimals) return nullptr;
  unsigned decimals = general ? general_decimals(fixed, digits) : digits;
  if (decimals > kMostDecimals || !rounds_to_nearest() || !has_plain_point())
    return nullptr;

  auto [integer, places] = rounded(fixed, decimals);
  if (general) {
    // Rounding may have added a digit: 999999.5 becomes 1e+06.
    if (integer >= kPowersOfTen[digits]) return nullptr;
    for (; decimals > 0 && places % 10 == 0; --decimals) places /= 10;
  }
  if (integer > UINT32_MAX) return nullptr;
  out = std::to_chars(out, out + 10, static_cast<uint32_t>(integer)).ptr;
  if (decimals == 0) return out;
  *out = '.';
  return format_places(out + 1, places, decimals);
}
