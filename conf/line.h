// One line of a configuration file. Everything that reads such a file uses this, so that
// all agree on what is a header and what an entry.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_LINE_H
#define GROUNDWORK_CONF_LINE_H

#include <cstddef>
#include <cstring>
#include <string_view>

#include "conf/trim.h"
#include "core/built_for.h"

namespace groundwork {

// The position of the first `mark` in a text; its size if there is none.
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
  std::string_view name{};   // the section's, not trimmed, or the key's, trimmed
  std::string_view value{};  // trimmed; if empty, it points to the end of the line
};

// Removes the first line, with its newline, from a text.
//
// Only the first character of a line counts: an indented "[x]" or "#" is neither header nor
// comment. The caller knows whether there is a section for an entry.
IN_LINE_FOR_SPEED Line take_line(std::string_view& text) {
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
  return {Line::Kind::kEntry, trimmed(between(line, 0, at)),
          trimmed(between(line, at + 1, line.size()))};
}

}  // namespace groundwork

#endif
