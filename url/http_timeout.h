// A hook for limiting the waits of HTTP streams. This layer itself limits only connecting.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_URL_HTTP_TIMEOUT_H
#define GROUNDWORK_URL_HTTP_TIMEOUT_H

#include <groundwork/url.h>

#include <cstdint>

namespace groundwork {

struct HttpTimeout {
  int32_t record_size;  // of a stream's record, which begins with a URL_http
  // Waits until a connection is made or has failed; false when time is up.
  bool (*wait_until_settled)(int fd);
  // Called when the stream is connected, before it sends its request.
  void (*begin)(URL_http* stream);
  // Called after the request, before status and headers are read with the `gets` slot.
  void (*await_headers)(URL_http* stream);
  // Called before the stream is returned to the program.
  void (*await_body)(URL_http* stream);
};

// For streams opened from now on; null, the initial value, for no limits.
[[gnu::visibility("hidden")]] extern const HttpTimeout* http_timeout;

}  // namespace groundwork

#endif
