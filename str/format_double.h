// The digits of a double, as "%f" and "%g" print them.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_STR_FORMAT_DOUBLE_H
#define GROUNDWORK_STR_FORMAT_DOUBLE_H

#include <cstdint>

namespace groundwork {

// The size that format_double() needs: ten digits, the point and nine digits.
constexpr unsigned kLongestDouble = 20;

// Writes the absolute value of the double with these bits to `out`, unterminated, as "%f"
// or ("general") "%g" does with this precision. Returns the end of the text, or null for
// what is left to the system formatter: large and tiny numbers, infinities and NaN,
// exponents, more than nine digits after the point, a decimal point other than ".", and
// rounding modes other than to nearest.
char* format_double(char* out, uint64_t double_bits, unsigned precision, bool general);

}  // namespace groundwork

#endif
