// One line of a configuration file. Everything that reads such a file uses this, so that
// all agree on what is a header and what an entry.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_LINE_H
#define GROUNDWORK_CONF_LINE_H

#include <cstddef>
#include <cstring>
#include <string_view>

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
Line take_line(std::string_view& text);

}  // namespace groundwork

#endif
