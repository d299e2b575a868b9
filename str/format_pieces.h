// The text of a simple format, assembled from pieces instead of by the system formatter.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_STR_FORMAT_PIECES_H
#define GROUNDWORK_STR_FORMAT_PIECES_H

#include <cstddef>
#include <cstdint>

namespace groundwork {

// A sequence of pieces of text, collected while a format is walked. Strings are pointed to,
// not copied; numbers are formatted into a small buffer here. Whatever does not fit, or has
// no function here, makes the sequence incomplete.
class FormatPieces {
 public:
  // How a piece is padded to a minimum width: with spaces on the right (left_adjust, which
  // takes precedence), with zeros after the sign of a number, or with spaces on the left.
  struct Layout {
    size_t width;
    bool left_adjust;
    bool zero_padding;
  };
  enum class Base { kDecimal, kHexadecimal, kUpperHexadecimal };

  FormatPieces() = default;
  FormatPieces(const FormatPieces&) = delete;
  FormatPieces& operator=(const FormatPieces&) = delete;

  // Whether the pieces make up the whole text.
  bool complete() const { return complete_; }
  void give_up() { complete_ = false; }

  void add(const char* text, size_t length) {
    if (count_ == kMaxPieces) return give_up();
    pieces_[count_++] = {text, length};
  }
  void add_text(const char* text, size_t length, const Layout& layout);
  void add_character(char c);
  void add_number(uint64_t magnitude, bool negative, Base base, const Layout& layout);
  // Adds a double, given by its bits, as "%f" or ("general") "%g" prints it.
  void add_float(uint64_t double_bits, unsigned precision, bool general,
                 const Layout& layout);

  // Writes the text, unterminated, to `out`.
  void write(char* out) const;

 private:
  static constexpr size_t kMaxPieces = 32;
  static constexpr size_t kScratchSize = 192;

  struct Piece {
    const char* text;
    size_t length;
  };

  void add_padding(const char* fill, size_t count);
  char* begin_number(bool negative);
  void end_number(const char* digits, const char* end, bool negative, const Layout& layout);

  size_t count_ = 0;
  size_t scratch_used_ = 0;
  bool complete_ = true;
  Piece pieces_[kMaxPieces];    // the first count_ are set
  char scratch_[kScratchSize];  // formatted numbers and characters
};

}  // namespace groundwork

#endif
