// Leading and trailing white space, as isspace() of the C locale defines it.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_TRIM_H
#define GROUNDWORK_CONF_TRIM_H

#include <string_view>

namespace groundwork {

constexpr bool is_space(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte <= ' ' && (byte == ' ' || (byte >= '\t' && byte <= '\r'));
}

constexpr bool is_trimmed(std::string_view text) {
  return text.empty() || (!is_space(text.front()) && !is_space(text.back()));
}

std::string_view trimmed(std::string_view text);

}  // namespace groundwork

#endif
