// One line of a configuration file. Whatever reads such a file reads it through here, so
// that all take the same lines for headers and entries.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_LINE_H
#define GROUNDWORK_CONF_LINE_H

#include <cstddef>
#include <cstring>
#include <string_view>

#include "conf/trim.h"

namespace groundwork {

// Where the first `mark` of a text is; its size without one.
inline size_t position_of(std::string_view text, char mark) {
  const void* const found = std::memchr(text.data(), mark, text.size());
  return found != nullptr
             ? static_cast<size_t>(static_cast<const char*>(found) - text.data())
             : text.size();
}

inline std::string_view between(std::string_view text, size_t from, size_t to) {
  return {text.data() + from, to - from};
}

struct Line {
  enum class Kind { kIgnored, kHeader, kEntry };
  Kind kind = Kind::kIgnored;
  std::string_view name{};   // of the section, not trimmed; of the key, trimmed
  std::string_view value{};  // trimmed; an empty one is where the line ends
};

// Only the first character of a line is looked at: an indented "[x]" or "#" is no header
// and no comment. `line` comes without its newline. Whether there is a section for an entry
// is for the caller to know.
inline Line parse_line(std::string_view line) {
  if (line.empty() || line.front() == '#') return {};
  const bool is_header = line.front() == '[';
  const size_t mark = position_of(line, is_header ? ']' : '=');
  // A header that is not closed is ignored; the section stays as it was.
  if (mark == line.size()) return {};
  if (is_header) return {Line::Kind::kHeader, between(line, 1, mark)};
  return {Line::Kind::kEntry, trimmed(between(line, 0, mark)),
          trimmed(between(line, mark + 1, line.size()))};
}

// Calls take(line) for each line of a text, without its newline, until that returns false.
// A text that ends in a newline has an empty line after it.
template <typename Take>
bool for_each_line_of(std::string_view text, Take take) {
  for (;;) {
    const size_t end = position_of(text, '\n');
    if (!take(between(text, 0, end))) return false;
    if (end == text.size()) return true;
    text.remove_prefix(end + 1);
  }
}

}  // namespace groundwork

#endif
