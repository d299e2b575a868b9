// SPDX-License-Identifier: MIT

#include "conf/line.h"

#include "conf/trim.h"

namespace groundwork {

Line take_line(std::string_view& text) {
  const std::string_view line = between(text, 0, position_of(text, '\n'));
  text.remove_prefix(line.size() != text.size() ? line.size() + 1 : line.size());
  if (line.empty() || line.front() == '#') return {};
  const bool is_header = line.front() == '[';
  const char mark = is_header ? ']' : '=';
  // Names are short: a call would cost more than the walk.
  size_t at = 0;
  while (line[at] != mark) {
    // A header that is not closed is ignored; the section stays as it was.
    if (++at == line.size()) return {};
  }
  if (is_header) return {Line::Kind::kHeader, between(line, 1, at)};
  return {Line::Kind::kEntry, trimmed(between(line, 0, at)),
          trimmed(between(line, at + 1, line.size()))};
}

}  // namespace groundwork
