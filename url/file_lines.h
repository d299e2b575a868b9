// Lines of plain files, read in pieces.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_URL_FILE_LINES_H
#define GROUNDWORK_URL_FILE_LINES_H

#include <groundwork/url.h>

#include <cstdint>

namespace groundwork {

// Whether a stream is one of the file module's, with the module's own line and byte
// readers, on a file that can step back and will find the same bytes.
bool is_read_in_pieces(URL url);

// url_readline() for such a stream and an `n` of 2 or more: the same in all that a program
// can see, with two system calls a line instead of one a byte.
int32_t read_line_in_pieces(URL url, char* buf, int32_t n);

}  // namespace groundwork

#endif
