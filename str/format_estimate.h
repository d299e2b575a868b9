// Estimates the size of a formatted text.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_STR_FORMAT_ESTIMATE_H
#define GROUNDWORK_STR_FORMAT_ESTIMATE_H

#include <cstdarg>
#include <cstdint>

#include "str/format_pieces.h"
#include "str/narrowed_format.h"

namespace groundwork {

// Walks a format and its arguments once. Returns the number of bytes to allocate for the
// text, including the terminator; 1 for a null format. Logs a warning for what it cannot
// measure. `args` is unchanged. If the format is simple, `pieces` becomes the text, never
// longer than the estimate; otherwise it is incomplete. With `narrowed`, each conversion of
// a wide string that is null is made narrow there.
uint64_t estimate_format(const char* fmt, va_list args, FormatPieces& pieces,
                         NarrowedFormat* narrowed = nullptr);

}  // namespace groundwork

#endif
