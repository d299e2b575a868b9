// Lines of plain files, read in pieces.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_URL_FILE_LINES_H
#define GROUNDWORK_URL_FILE_LINES_H

#include <groundwork/url.h>

#include <cstdint>

namespace groundwork {

// Results of gets_from_file(): no line, and a line whose text may be shorter or longer than
// what was read.
constexpr int32_t kNoLine = -1;
constexpr int32_t kUncounted = -2;

// The file module's line reader, which is in the `gets` slot of its streams.
[[gnu::visibility("hidden")]] char* file_gets(URL url, char* buf, int32_t n);

// The same, for a stream with this line reader. Returns the length of the text, unless it
// takes a search for its NUL.
int32_t gets_from_file(URL url, char* buf, int32_t n);

// Returns whether a stream belongs to the file module, with the module's own line and byte
// readers, and is on a file that can step back and find the same bytes.
bool is_read_in_pieces(URL url);

// url_readline() for such a stream and an `n` of 2 or more, with two system calls per line
// instead of one per byte. During the call the descriptor may be ahead of the line, which a
// signal handler or another process that shares it could see. A pipe that a program puts
// under the descriptor's number after the first line cannot step back: what was ahead is
// lost.
int32_t read_line_in_pieces(URL url, char* buf, int32_t n);

}  // namespace groundwork

#endif
