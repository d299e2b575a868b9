// Reading much at once from a buffered stream over a socket.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_URL_SOCKET_STREAM_H
#define GROUNDWORK_URL_SOCKET_STREAM_H

#include <cstdint>
#include <cstdio>

namespace groundwork {

// Reads as socket_fread() does: until `n` bytes came, the end, or an error. Large requests
// pass by the stream's buffer, which fread() uses in whole blocks and for every remainder.
int64_t socket_fill(void* buf, int64_t n, std::FILE* stream);

}  // namespace groundwork

#endif
