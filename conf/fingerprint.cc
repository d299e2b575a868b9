// The hash: two independent halves that alternate, eight bytes at a time. A half has two
// words of state, and each step is a permutation of these: texts that differ in only one
// step never collide. The change made by a step reaches both words before the next, so that
// later text can undo it only by matching all 64 bits.
//
// SPDX-License-Identifier: MIT

#include "conf/fingerprint.h"

#include <bit>
#include <cstring>

#include "core/word.h"

namespace groundwork {
namespace {

class Half {
 public:
  constexpr Half(uint32_t a, uint32_t b) : a_(a), b_(b) {}

  void take(const char* eight_bytes) {
    a_ = std::rotl(a_ + load_word(eight_bytes) * kSpread, 13);
    b_ = std::rotl(b_ + load_word(eight_bytes + 4) * kSpread, 17) ^ a_;
    a_ *= kMix;
    b_ *= kMix;
    a_ += b_;
  }

  uint32_t a() const { return a_; }
  uint32_t b() const { return b_; }

 private:
  // Odd, so that multiplication is reversible.
  static constexpr uint32_t kSpread = 0x85ebca77;
  static constexpr uint32_t kMix = 0x9e3779b1;

  uint32_t a_;
  uint32_t b_;
};

constexpr size_t kRound = 16;

}  // namespace

Fingerprint fingerprint_of(const char* text, size_t size) {
  Half even(0x243f6a88, 0x85a308d3);
  Half odd(0x13198a2e, 0x03707344);
  size_t left = size;
  for (; left >= kRound; left -= kRound, text += kRound) {
    even.take(text);
    odd.take(text + kRound / 2);
  }
  if (left != 0) {
    // Zeros at the end cannot be confused with text, since the sizes are compared, too.
    char rest[kRound] = {};
    std::memcpy(rest, text, left);
    even.take(rest);
    odd.take(rest + kRound / 2);
  }
  return {size, {even.a(), even.b(), odd.a(), odd.b()}};
}

}  // namespace groundwork
