// What may bound the waits of HTTP streams. The layer itself bounds none but the
// connection; who does sets the hook.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_URL_HTTP_TIMEOUT_H
#define GROUNDWORK_URL_HTTP_TIMEOUT_H

#include <groundwork/url.h>

#include <cstdint>

namespace groundwork {

struct HttpTimeout {
  int32_t record_size;  // of a stream, an URL_http first
  // Waits until a connection is made or has failed; false when time is up.
  bool (*wait_until_settled)(int fd);
  // The stream has a connection, and will send its request.
  void (*begin)(URL_http* stream);
  // The request was sent: status and headers come through the `gets` slot.
  void (*await_headers)(URL_http* stream);
  // The stream is about to be handed out.
  void (*await_body)(URL_http* stream);
};

// For streams that are opened from now on; null, as at load, for no bounds.
extern const HttpTimeout* http_timeout;

}  // namespace groundwork

#endif
