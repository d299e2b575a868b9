// Formatted text in a new block: estimated, allocated, then written once.
//
// SPDX-License-Identifier: MIT

#include <groundwork/str.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "core/owned.h"
#include "str/format_estimate.h"

using namespace groundwork;

namespace {

// Lets the system formatter write the text into a block of `size` zeros. Returns the block,
// grown if necessary, or null when memory is exhausted. If the formatter itself fails, the
// block keeps what it has written so far.
char* format_into(Owned<char> block, size_t size, const char* fmt, va_list args) {
  const int saved_errno = errno;  // for "%m"
  va_list again;
  va_copy(again, args);
  // If the text fits it is formatted only once: "%n" stores its count meanwhile.
  const int length = std::vsnprintf(block.get(), size, fmt, args);
  if (length >= 0 && static_cast<size_t>(length) >= size) {
    size = static_cast<size_t>(length) + 1;
    auto* const grown = static_cast<char*>(std::realloc(block.get(), size));
    if (grown != nullptr) {
      static_cast<void>(block.release());
      errno = saved_errno;
      std::vsnprintf(grown, size, fmt, again);
    }
    block.reset(grown);
  }
  va_end(again);
  if (block != nullptr) block.get()[size - 1] = '\0';
  return block.release();
}

}  // namespace

extern "C" char* g_strdup_printf(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  char* const text = g_strdup_vprintf(fmt, args);
  va_end(args);
  return text;
}

extern "C" char* g_strdup_vprintf(const char* fmt, va_list args) {
  const int saved_errno = errno;
  FormatPieces pieces;
#ifdef __GLIBC__
  const uint64_t size = estimate_format(fmt, args, pieces);
#else
  NarrowedFormat narrowed(fmt);
  const uint64_t size = estimate_format(fmt, args, pieces, &narrowed);
  if (fmt != nullptr) fmt = narrowed.get();
  if (fmt == nullptr && !pieces.complete()) return nullptr;
#endif
  if (size > PTRDIFF_MAX) [[unlikely]]
    return nullptr;

  Owned<char> block(static_cast<char*>(std::calloc(1, static_cast<size_t>(size))));
  if (block == nullptr) [[unlikely]]
    return nullptr;
  if (pieces.complete()) {
    pieces.write(block.get());
    return block.release();
  }
  errno = saved_errno;
  return format_into(std::move(block), static_cast<size_t>(size), fmt, args);
}
