// Socket functions for the HTTP module, besides the public ones.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_URL_SOCKET_H
#define GROUNDWORK_URL_SOCKET_H

#include <cstdint>
#include <cstdio>

// For a function that cancellation may leave: the address sanitizer would otherwise keep
// guarding the locals of the frames that are gone. The streams use nothing of the other
// folders, so they have a word of their own for it.
#define MAY_BE_LEFT [[gnu::no_sanitize_address]]

namespace groundwork {

// Reads like socket_fread(): until `n` bytes, the end, or an error. Large reads bypass the
// stream's buffer, which fread() would use for whole blocks and for every remainder.
int64_t socket_fill(void* buf, int64_t n, std::FILE* stream);

// Waits until a connection is made or has failed; false gives up.
using WaitUntilSettled = bool (*)(int fd);

// open_socket() with the caller's own wait.
int32_t open_socket_with(const char* host, int32_t port, uint32_t* addr_out,
                         WaitUntilSettled wait_until_settled);

}  // namespace groundwork

#endif
