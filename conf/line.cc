// SPDX-License-Identifier: MIT

#include "conf/line.h"

#include "conf/trim.h"

namespace groundwork {
namespace {

inline std::string_view trim(std::string_view text) {
  while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_space(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace

std::string_view trimmed(std::string_view text) {
  return trim(text);
}

Line take_line(std::string_view& text) {
  const std::string_view line = between(text, 0, position_of(text, '\n'));
  text.remove_prefix(line.size() != text.size() ? line.size() + 1 : line.size());
  if (line.empty() || line.front() == '#') return {};
  const bool is_header = line.front() == '[';
  const char mark = is_header ? ']' : '=';
  // Names are short: calling memchr() would cost more than this loop.
  size_t at = 0;
  while (line[at] != mark) {
    // A header that is not closed is ignored; the current section does not change.
    if (++at == line.size()) return {};
  }
  if (is_header) return {Line::Kind::kHeader, between(line, 1, at)};
  return {Line::Kind::kEntry, trim(between(line, 0, at)),
          trim(between(line, at + 1, line.size()))};
}

}  // namespace groundwork
