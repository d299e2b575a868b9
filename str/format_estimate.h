// Size of a formatted text before it is made.
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
// text, terminator included; 1 for a null format. Logs a warning for what it cannot
// measure. Leaves `args` as it was. Where the format is simple, `pieces` is the text, never
// longer than the estimate; else it is given up. With `narrowed`, each conversion of a wide
// string that is a null pointer is made narrow there.
uint64_t estimate_format(const char* fmt, va_list args, FormatPieces& pieces,
                         NarrowedFormat* narrowed = nullptr);

}  // namespace groundwork

#endif
