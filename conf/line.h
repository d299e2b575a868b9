// One line of a configuration file. Whatever reads such a file reads it through here, so
// that all take the same lines for headers and entries.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_LINE_H
#define GROUNDWORK_CONF_LINE_H

#include <cstddef>
#include <cstring>
#include <string_view>

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

// Takes the first line from a text, together with its newline.
//
// Only the first character of a line is looked at: an indented "[x]" or "#" is no header
// and no comment. Whether there is a section for an entry is for the caller to know.
Line take_line(std::string_view& text);

}  // namespace groundwork

#endif
