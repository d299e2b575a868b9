// Copies a line out of the bytes that were read from a file, and looks for its end on the
// way.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_URL_COPY_LINE_H
#define GROUNDWORK_URL_COPY_LINE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#ifdef __ARM_FEATURE_SIMD32
#include <arm_acle.h>
#endif

namespace groundwork {

inline bool ends_line(char byte) {
  return byte == '\r' || byte == '\n';
}

// copy_line() copies the line at the start of `bytes`, including its end, or all bytes if
// it is incomplete. It returns how many bytes it copied, writes none after them, and sets
// `may_have_nul`, unless that is null, if a NUL can be among them. It is fastest where `to`
// and the bytes are equally far from an address that kLineAlignment divides.
//
// The C library's functions take much less than an instruction for each byte, and a loop
// for everything takes one to one and a half, but is only one. It is the better choice on
// MIPS and with musl, where the C library has no fast search, and on ARM, unless a line is
// long and no NUL matters. It is also larger.
#if !defined(__GLIBC__) || defined(__mips__)
constexpr bool kCopiesInLoop = true;
constexpr size_t kLongLine = SIZE_MAX;
#elif defined(__arm__) && !defined(__OPTIMIZE_SIZE__)
constexpr bool kCopiesInLoop = true;
constexpr size_t kLongLine = 200;
#else
constexpr bool kCopiesInLoop = false;
constexpr size_t kLongLine = 0;
#endif

// With the C library's functions. Looks for no NUL.
inline size_t copy_long_line(char* to, std::string_view bytes) {
  size_t length = bytes.size();
  for (const char end : {'\n', '\r'}) {
    const void* const found = std::memchr(bytes.data(), end, length);
    if (found != nullptr) {
      length = static_cast<size_t>(static_cast<const char*>(found) - bytes.data()) + 1;
    }
  }
  std::memcpy(to, bytes.data(), length);
  return length;
}

constexpr size_t kWord = sizeof(uint32_t);
constexpr size_t kLineAlignment = kCopiesInLoop ? kWord : 1;
constexpr uint32_t kTopBits = 0x80808080;

#ifdef __OPTIMIZE_SIZE__
constexpr bool kCopiesBlocks = false;
#else
constexpr bool kCopiesBlocks = true;
#endif

inline size_t misalignment(const char* at) {
  return reinterpret_cast<uintptr_t>(at) % kWord;
}

inline uint32_t load_anywhere(const char* at) {
  struct [[gnu::packed, gnu::may_alias]] Unaligned {
    uint32_t word;
  };
  return reinterpret_cast<const Unaligned*>(at)->word;
}

inline uint32_t load(const char* at) {
  uint32_t word;
  std::memcpy(&word, __builtin_assume_aligned(at, kWord), kWord);
  return word;
}

inline void store(char* to, uint32_t word) {
  std::memcpy(__builtin_assume_aligned(to, kWord), &word, kWord);
}

// Sets the top bit of each byte that may be a line end or NUL: of those below 14. Other
// bytes with it are possible, too.
inline uint32_t suspicious_bytes(uint32_t word) {
#ifdef __ARM_FEATURE_SIMD32
  return __uqsub8(0x8d8d8d8d, word);
#else
  // Of most bytes above 127, too, and borrows change it for two bytes.
  return word - 0x0e0e0e0e;
#endif
}

// The same without bytes above 127 and tabs, but slower: the exclusive or makes tabs 15,
// and line ends and NUL at most 12.
inline uint32_t harmful_bytes(uint32_t word) {
#ifdef __ARM_FEATURE_SIMD32
  return __uqsub8(0x8c8c8c8c, word ^ 0x06060606);
#else
  return ~(((word ^ 0x06060606) + 0x72727272) | word);
#endif
}

// Four aligned words.
struct Block {
  uint32_t a, b, c, d;
};

inline Block load_block(const char* at) {
  return {load(at), load(at + kWord), load(at + 2 * kWord), load(at + 3 * kWord)};
}

inline void store_block(char* to, const Block& block) {
  store(to, block.a);
  store(to + kWord, block.b);
  store(to + 2 * kWord, block.c);
  store(to + 3 * kWord, block.d);
}

template <uint32_t bytes_in(uint32_t)>
bool has(const Block& block) {
  return ((bytes_in(block.a) | bytes_in(block.b) | bytes_in(block.c) | bytes_in(block.d)) &
          kTopBits) != 0;
}

// Copies and passes whole blocks, up to one that may have the line's end or a NUL.
inline void copy_blocks(char*& to, const char*& at, const char* end) {
  const char* const stop =
      at + static_cast<size_t>(end - at) / sizeof(Block) * sizeof(Block);
  while (at != stop) {
    const Block block = load_block(at);
    if (has<suspicious_bytes>(block)) [[unlikely]] {
      if (has<harmful_bytes>(block)) break;
    }
    store_block(to, block);
    at += sizeof(Block);
    to += sizeof(Block);
  }
}

// Tests words, and single bytes of words that may have the end or a NUL.
inline size_t copy_in_loop(char* to, std::string_view bytes, bool* may_have_nul) {
  const char* at = bytes.data();
  const char* const end = at + bytes.size();
  while (at != end) {
    if (misalignment(to) == 0) {
      if (kCopiesBlocks && misalignment(at) == 0) copy_blocks(to, at, end);
      while (end - at >= ptrdiff_t{kWord}) {
        const uint32_t word = load_anywhere(at);
        if ((harmful_bytes(word) & kTopBits) != 0) break;
        store(to, word);
        at += kWord;
        to += kWord;
      }
    }
    // The bytes up to the next aligned address.
    const auto left = static_cast<size_t>(end - at);
    const char* const stop = at + std::min(left, kWord - misalignment(to));
    while (at != stop) {
      const char byte = *at++;
      *to++ = byte;
      if (ends_line(byte)) return static_cast<size_t>(at - bytes.data());
      if (byte == '\0' && may_have_nul != nullptr) *may_have_nul = true;
    }
  }
  return bytes.size();
}

inline size_t copy_line(char* to, std::string_view bytes, bool* may_have_nul) {
  if (kCopiesInLoop && (may_have_nul != nullptr || bytes.size() < kLongLine)) {
    return copy_in_loop(to, bytes, may_have_nul);
  }
  if (may_have_nul != nullptr) *may_have_nul = true;
  return copy_long_line(to, bytes);
}

}  // namespace groundwork

#endif
