// Leading and trailing white space, as isspace() of the C locale defines it.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_TRIM_H
#define GROUNDWORK_CONF_TRIM_H

#include <string_view>

#include "core/built_for.h"

namespace groundwork {

constexpr bool is_space(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte <= ' ' && (byte == ' ' || (byte >= '\t' && byte <= '\r'));
}

constexpr bool is_trimmed(std::string_view text) {
  return text.empty() || (!is_space(text.front()) && !is_space(text.back()));
}

IN_LINE_FOR_SPEED std::string_view trimmed(std::string_view text) {
  while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_space(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace groundwork

#endif
