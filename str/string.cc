// Strings: copying, trimming, splitting, comparing. Uses malloc() directly, because these
// functions do not report exhausted memory.
//
// SPDX-License-Identifier: MIT

#include <groundwork/str.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "core/check.h"

namespace {

constexpr char kSource[] = "g_str";

// isspace() of the "C" locale, whatever locale the program has set.
bool is_space(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

char* copy_of(const char* text, size_t length) {
  auto* const copy = static_cast<char*>(std::malloc(length + 1));
  if (copy == nullptr) [[unlikely]]
    return nullptr;
  std::memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

// A vector under construction. Its block is allocated before the strings: behind them, at
// the end of the heap, freeing it would make the C library merge all free blocks.
class StringVector {
 public:
  StringVector() = default;
  StringVector(const StringVector&) = delete;
  StringVector& operator=(const StringVector&) = delete;
  ~StringVector() {
    for (size_t i = 0; i < count_; ++i) std::free(strings_[i]);
    std::free(strings_);
  }

  // Appends a copy; false, with nothing changed, when memory is exhausted.
  bool append(const char* text, size_t length) {
    if (count_ + 1 >= slots_ && !grow(slots_ == 0 ? kFirstSlots : 2 * slots_)) return false;
    char* const copy = copy_of(text, length);
    if (copy == nullptr) [[unlikely]]
      return false;
    strings_[count_++] = copy;
    return true;
  }

  // Hands over ownership of the null-terminated vector; null when memory is exhausted.
  char** release() {
    if (strings_ == nullptr && !grow(1)) return nullptr;
    strings_[count_] = nullptr;
    count_ = 0;
    return std::exchange(strings_, nullptr);
  }

 private:
  static constexpr size_t kFirstSlots = 16;  // most texts have fewer pieces

  bool grow(size_t slots) {
    auto* const grown = static_cast<char**>(std::realloc(strings_, slots * sizeof(char*)));
    if (grown == nullptr) [[unlikely]]
      return false;
    strings_ = grown;
    slots_ = slots;
    return true;
  }

  char** strings_ = nullptr;
  size_t count_ = 0;  // strings
  size_t slots_ = 0;  // room, with that for the null pointer
};

// Returns the first `c` in `text`, or the end of `text` if there is none.
const char* find_char(const char* text, char c) {
#ifdef __i386__
  // glibc's strchrnul() takes twice as long there, since only strchr() uses SSE2.
  const char* const found = std::strchr(text, c);
  return found != nullptr ? found : text + std::strlen(text);
#else
  return strchrnul(text, c);
#endif
}

// The same for a delimiter of any length.
const char* find_delimiter(const char* text, const char* delim) {
  if (delim[1] == '\0') return find_char(text, delim[0]);
  const char* const found = std::strstr(text, delim);
  return found != nullptr ? found : text + std::strlen(text);
}

}  // namespace

extern "C" char* g_strdup(const char* str) {
  CHECK_ARG(str != NULL, nullptr);
  return copy_of(str, std::strlen(str));
}

extern "C" char* g_strchug(char* str) {
  CHECK_ARG(str != NULL, nullptr);
  const char* rest = str;
  while (is_space(*rest)) ++rest;
  if (rest != str) std::memmove(str, rest, std::strlen(rest) + 1);
  return str;
}

extern "C" char* g_strchomp(char* str) {
  CHECK_ARG(str != NULL, nullptr);
  // Kept: every trailing whitespace byte becomes a NUL, not only the first.
  for (size_t length = std::strlen(str); length > 0 && is_space(str[length - 1]);) {
    str[--length] = '\0';
  }
  return str;
}

extern "C" char** g_strsplit(const char* str, const char* delim, int max_tokens) {
  CHECK_ARG(str != NULL, nullptr);
  CHECK_ARG(delim != NULL, nullptr);
  CHECK_ARG(delim[0] != '\0', nullptr);

  StringVector pieces;
  if (*str == '\0') return pieces.release();
  const size_t delim_length = std::strlen(delim);
  size_t splits = max_tokens < 1 ? SIZE_MAX : static_cast<size_t>(max_tokens) - 1;
  for (const char* cursor = str;; --splits) {
    const char* const end =
        splits > 0 ? find_delimiter(cursor, delim) : cursor + std::strlen(cursor);
    if (!pieces.append(cursor, static_cast<size_t>(end - cursor))) return nullptr;
    if (*end == '\0') return pieces.release();
    cursor = end + delim_length;
  }
}

extern "C" void g_strfreev(char** str_array) {
  CHECK_ARG(str_array != NULL);
  for (char** string = str_array; *string != nullptr; ++string) std::free(*string);
  std::free(str_array);
}

extern "C" int g_str_has_suffix(const char* str, const char* suffix) {
  CHECK_ARG(str != NULL, 0);
  CHECK_ARG(suffix != NULL, 0);
  const size_t length = std::strlen(str);
  const size_t suffix_length = std::strlen(suffix);
  return length >= suffix_length &&
         std::memcmp(str + length - suffix_length, suffix, suffix_length) == 0;
}

extern "C" int g_str_has_prefix(const char* str, const char* prefix) {
  CHECK_ARG(str != NULL, 0);
  CHECK_ARG(prefix != NULL, 0);
  return std::strncmp(str, prefix, std::strlen(prefix)) == 0;
}

extern "C" int g_strpack(char* str) {
  // In place: the write position never overtakes the read position.
  char* end = str;
  const char* next = str;
  for (; *next != '\0'; ++next) {
    if (*next != ' ') *end++ = *next;
  }
  *end = '\0';
  return static_cast<int>(next - end);
}

extern "C" char* g_strncpy(char* dst, const char* src, unsigned len) {
  const size_t length = strnlen(src, len);
  std::memmove(dst, src, length);
  std::memset(dst + length, 0, len - length);
  dst[len] = '\0';
  return dst;
}
