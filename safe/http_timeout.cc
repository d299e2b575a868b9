// HTTP streams that do not wait forever: the slots of a stream with a limit wait for bytes
// before they read, and no longer than the limit. The buffered stream is unchanged, so that
// programs find the socket under it as always.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <groundwork/url.h>
#include <stdio_ext.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "url/http_timeout.h"

using namespace groundwork;

namespace {

constexpr int kConnectTimeoutMs = 5000;
constexpr int32_t kLeastDirect = 4096;  // smaller reads are faster through the buffer

int limit_ms = 0;  // for streams opened from now on

struct LimitedStream {
  URL_http http;
  int limit;         // of each wait, in milliseconds
  int64_t deadline;  // of status and headers, on the monotonic clock; 0 afterwards
  bool has_failed;   // a wait has timed out
};

LimitedStream& limited(URL url) {
  return *reinterpret_cast<LimitedStream*>(url);
}

// Returns the result of poll(): -1 with errno, 0 when the time is up. An interrupted wait
// continues, and does not change errno.
int wait_until(int fd, short events, int64_t deadline) {
  const int saved_errno = errno;
  for (;;) {
    const int64_t left =
        std::clamp(deadline - g_monotonic_ms(), int64_t{0}, int64_t{INT_MAX});
    pollfd wait{fd, events, 0};
    const int result = poll(&wait, 1, static_cast<int>(left));
    if (result == -1 && errno != EINTR) return result;
    errno = saved_errno;
    if (result > 0 || (result == 0 && left < INT_MAX)) return result;
  }
}

// Fails this and every later call of the stream with ETIMEDOUT.
void time_out(LimitedStream& stream) {
  stream.has_failed = true;
  errno = ETIMEDOUT;
  url_errno = ETIMEDOUT;
}

// Waits for bytes, the end or an error. False with errno set when the time is up.
bool wait_for_bytes(LimitedStream& stream) {
  const int saved_errno = errno;
  const int fd = fileno(stream.http.stream);
  errno = saved_errno;
  if (fd == -1) return true;  // a stream in memory, that the program put there
  const int64_t now = g_monotonic_ms();
  const int64_t deadline = stream.deadline != 0 ? stream.deadline : now + stream.limit;
  // The deadline also ends endless headers.
  const int result = now < deadline ? wait_until(fd, POLLIN, deadline) : 0;
  if (result == 0) time_out(stream);
  return result > 0;
}

// The number of bytes in the buffer.
int64_t buffered_bytes(FILE* stream) {
#ifdef __GLIBC__
  return stream->_IO_read_end - stream->_IO_read_ptr;
#else
  return static_cast<int64_t>(__freadahead(stream));
#endif
}

// Fills the empty buffer. False at the end, and with errno set on failure.
bool fill(LimitedStream& stream) {
  FILE* const file = stream.http.stream;
  while (wait_for_bytes(stream)) {
    const int saved_errno = errno;
    errno = 0;
    const int byte = getc_unlocked(file);
    if (errno != EINTR) {
      if (errno == 0) errno = saved_errno;
      return byte != EOF && ungetc(byte, file) != EOF;
    }
    errno = saved_errno;
    clearerr_unlocked(file);
  }
  return false;
}

// Reads into the caller's memory, bypassing the empty buffer. 0 at the end, -1 on failure.
int64_t read_direct(LimitedStream& stream, char* buf, int32_t n) {
  FILE* const file = stream.http.stream;
  const int saved_errno = errno;
  for (;;) {
    if (!wait_for_bytes(stream)) return -1;
    const ssize_t count = recv(fileno(file), buf, static_cast<size_t>(n), 0);
    // A program may have replaced our stream with one of another kind.
    if (count == -1 && (errno == ENOTSOCK || errno == EBADF)) {
      errno = saved_errno;
      return socket_fread(buf, n, file);
    }
    if (count != -1 || errno != EINTR) return count;
  }
}

// Reads the next part of a body, at most `n` bytes. 0 at the end, 0 or -1 on failure.
int64_t read_part(LimitedStream& stream, char* buf, int32_t n) {
  FILE* const file = stream.http.stream;
  if (buffered_bytes(file) == 0) {
    if (n >= kLeastDirect) return read_direct(stream, buf, n);
    if (!fill(stream)) return 0;
  }
  return socket_fread(buf, std::min(buffered_bytes(file), int64_t{n}), file);
}

int32_t read_body(URL url, void* buf, int32_t n) {
  LimitedStream& stream = limited(url);
  int32_t total = 0;
  if (stream.has_failed) time_out(stream);
  while (total < n && !stream.has_failed) {
    const int64_t count = read_part(stream, static_cast<char*>(buf) + total, n - total);
    if (count <= 0) break;
    total += static_cast<int32_t>(count);
  }
  return total;
}

// Like socket_fgets(), in pieces that are already in the buffer.
char* read_line(URL url, char* buf, int32_t n) {
  LimitedStream& stream = limited(url);
  FILE* const file = stream.http.stream;
  if (stream.has_failed) {
    time_out(stream);
    return nullptr;
  }
  if (n < 2) return socket_fgets(buf, n, file);
  int32_t length = 0;
  while (length < n - 1 && (length == 0 || buf[length - 1] != '\n')) {
    int64_t buffered = buffered_bytes(file);
    if (buffered == 0) {
      errno = 0;
      if (fill(stream)) continue;
      if (errno != 0 || length == 0) return nullptr;
      break;
    }
    const auto piece = static_cast<int>(std::min(buffered, int64_t{n - 1 - length}) + 1);
    if (socket_fgets(buf + length, piece, file) == nullptr) return nullptr;
    length += static_cast<int32_t>(buffered - buffered_bytes(file));
  }
  buf[length] = '\0';
  return buf;
}

int32_t read_byte(URL url) {
  LimitedStream& stream = limited(url);
  FILE* const file = stream.http.stream;
  if (stream.has_failed) {
    time_out(stream);
    return -1;
  }
  if (buffered_bytes(file) > 0 || fill(stream)) return getc_unlocked(file);
  if (errno != 0) url_errno = errno;
  return -1;
}

// --- The hook.

bool wait_until_settled(int fd) {
  const int limit = std::min(limit_ms, kConnectTimeoutMs);
  return wait_until(fd, POLLOUT, g_monotonic_ms() + limit) > 0;
}

// A server that reads nothing must not block the request, either.
void begin(URL_http* http) {
  auto& stream = *reinterpret_cast<LimitedStream*>(http);
  stream.limit = limit_ms;
  stream.http.common.read = read_body;
  stream.http.common.gets = read_line;
  stream.http.common.fgetc = read_byte;
  timeval limit{};
  limit.tv_sec = stream.limit / 1000;
  limit.tv_usec = stream.limit % 1000 * 1000;
  setsockopt(fileno(http->stream), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

void await_headers(URL_http* http) {
  auto& stream = *reinterpret_cast<LimitedStream*>(http);
  stream.deadline = g_monotonic_ms() + stream.limit;
}

void await_body(URL_http* http) {
  reinterpret_cast<LimitedStream*>(http)->deadline = 0;
}

constexpr HttpTimeout kTimeout = {sizeof(LimitedStream), wait_until_settled, begin,
                                  await_headers, await_body};

}  // namespace

extern "C" int url_http_set_timeout(int ms) {
  const int previous = limit_ms;
  limit_ms = std::max(ms, 0);
  http_timeout = limit_ms > 0 ? &kTimeout : nullptr;
  return previous;
}
