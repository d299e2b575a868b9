// What the HTTP module needs of sockets beside the public functions.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_URL_SOCKET_H
#define GROUNDWORK_URL_SOCKET_H

#include <cstdint>
#include <cstdio>

namespace groundwork {

// Reads as socket_fread() does: until `n` bytes came, the end, or an error. Large requests
// pass by the stream's buffer, which fread() uses in whole blocks and for every remainder.
int64_t socket_fill(void* buf, int64_t n, std::FILE* stream);

// Waits until a connection is made or has failed; false to give it up.
using WaitUntilSettled = bool (*)(int fd);

// open_socket() with a wait of the caller's.
int32_t open_socket_with(const char* host, int32_t port, uint32_t* addr_out,
                         WaitUntilSettled wait_until_settled);

}  // namespace groundwork

#endif
