// The slower hash of names, HalfSipHash with one round per word and three at the end, and
// the seed.
//
// SPDX-License-Identifier: MIT

#include "conf/name_hash.h"

#include <bit>

#include <sys/auxv.h>

namespace groundwork {
namespace {

class HalfSipHash {
 public:
  explicit HalfSipHash(uint32_t seed)
      : v0_(seed), v1_(~seed), v2_(seed ^ 0x6c796765), v3_(~seed ^ 0x74656462) {}

  void add(uint32_t word) {
    v3_ ^= word;
    round();
    v0_ ^= word;
  }

  uint32_t result() {
    v2_ ^= 0xff;
    for (int times = 0; times < 3; ++times) round();
    return v1_ ^ v3_;
  }

 private:
  void round() {
    v0_ += v1_;
    v1_ = std::rotl(v1_, 5) ^ v0_;
    v0_ = std::rotl(v0_, 16);
    v2_ += v3_;
    v3_ = std::rotl(v3_, 8) ^ v2_;
    v0_ += v3_;
    v3_ = std::rotl(v3_, 7) ^ v0_;
    v2_ += v1_;
    v1_ = std::rotl(v1_, 13) ^ v2_;
    v2_ = std::rotl(v2_, 16);
  }

  uint32_t v0_;
  uint32_t v1_;
  uint32_t v2_;
  uint32_t v3_;
};

constexpr uint32_t in_small_letters(uint32_t word) {
  return word | case_bits_of_letters(word);
}

}  // namespace

uint32_t keyed_hash(const char* name, size_t length, uint32_t seed) {
  HalfSipHash hash(seed);
  hash.add(static_cast<uint32_t>(length));
  if (length < 4) {
    hash.add(in_small_letters(short_word(name, length)));
    return hash.result();
  }
  const size_t last = length - 4;
  for (size_t at = 0; at < last; at += 4) {
    hash.add(in_small_letters(load_word(name + at)));
  }
  hash.add(in_small_letters(load_word(name + last)));
  return hash.result();
}

uint32_t process_seed() {
  // Sixteen random bytes that the kernel gives each program. The C library uses some of the
  // first for itself.
  const auto* const random = reinterpret_cast<const char*>(getauxval(AT_RANDOM));
  if (random != nullptr) return load_word(random + 12);
  // If there are none, the address of the stack.
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(__builtin_frame_address(0)));
}

}  // namespace groundwork
