// Size of a formatted text before it is made, and the text itself where it is simple.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_STR_FORMAT_ESTIMATE_H
#define GROUNDWORK_STR_FORMAT_ESTIMATE_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace groundwork {

// The text of a format as a row of pieces, collected while the format is walked. Formats of
// literals, strings, characters and integers need no formatter then; for anything else the
// row is given up.
class FormatPieces {
 public:
  FormatPieces() = default;
  FormatPieces(const FormatPieces&) = delete;
  FormatPieces& operator=(const FormatPieces&) = delete;

  // Whether the pieces make up the whole text.
  bool complete() const { return complete_; }
  void give_up() { complete_ = false; }

  // The piece is not copied.
  void add(const char* text, std::size_t length);
  void add_character(char c);
  // The character `fill`, which is a blank or '0', `count` times.
  void add_padding(char fill, std::size_t count);
  // The digits of a number in base 10 or 16, a minus before them if `negative`.
  // A minimum of `width` characters is reached with zeros behind the sign, or with blanks
  // on the right (`left_adjust`, which wins) or on the left.
  struct Number {
    std::uint64_t magnitude;
    bool negative;
    bool hexadecimal;
    bool upper_case;
    bool zero_padding;
    bool left_adjust;
    std::size_t width;
  };
  void add_number(const Number& number);

  // Writes the text, unterminated, to `out`.
  void write(char* out) const;

 private:
  static constexpr std::size_t kMaxPieces = 32;
  static constexpr std::size_t kScratchSize = 192;
  static constexpr std::size_t kLongestNumber = 20;

  struct Piece {
    const char* text;
    std::size_t length;
  };

  Piece pieces_[kMaxPieces];
  std::size_t count_ = 0;
  bool complete_ = true;
  std::size_t scratch_used_ = 0;
  char scratch_[kScratchSize];  // spelled numbers and characters
};

// Walks a format and its arguments once. Returns the number of bytes to allocate for the
// text, terminator included; 1 for a null format. Logs a warning for what it cannot
// measure. Leaves `args` as it was.
std::uint64_t estimate_format(const char* fmt, va_list args, FormatPieces& pieces);

}  // namespace groundwork

#endif
