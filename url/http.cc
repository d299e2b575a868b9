// Read-only streams over HTTP: one GET request per stream, direct or through a proxy; the
// body is passed on byte for byte. A stream is used by one thread at a time, so its
// buffered reads take no lock.
//
// SPDX-License-Identifier: MIT

#include <groundwork/url.h>
#include <pthread.h>
#include <stdio_ext.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "url/http_timeout.h"
#include "url/socket.h"
#include "url/unique_fd.h"

using namespace groundwork;

namespace {

// Size of the work buffer: the longest line of a request or a response, with its NUL.
constexpr size_t kWorkSize = 8192;
constexpr size_t kMaxHostLength = 255;
constexpr uint16_t kDefaultPort = 80;
constexpr int kTraceLine = 361;  // once a source line; programs look for this number
constexpr char kScheme[] = "http://";
constexpr char kContentLength[] = "Content-Length:";

struct CloseStream {
  void operator()(URL_http* stream) const { stream->common.close(&stream->common); }
};
using OwnedStream = std::unique_ptr<URL_http, CloseStream>;

URL_http* http_of(URL url) {
  return reinterpret_cast<URL_http*>(url);
}

// Sets both error variables; returns null, for the caller to return.
URL failed(int32_t url_code, int system_code) {
  url_errno = url_code;
  errno = system_code;
  return nullptr;
}

// --- The slots of a stream.

int32_t read_body(URL url, void* buf, int32_t n) {
  return static_cast<int32_t>(socket_fill(buf, n, http_of(url)->stream));
}

char* read_line(URL url, char* buf, int32_t n) {
  return socket_fgets(buf, n, http_of(url)->stream);
}

// Out of line, so that the common path of read_byte() needs no stack frame.
[[gnu::noinline]] int32_t read_byte_or_none(std::FILE* stream) {
  const int byte = getc_unlocked(stream);
  if (byte != EOF) return byte;
  if (errno != 0) url_errno = errno;
  return -1;
}

// Like socket_fread() of one byte, but cheaper: takes most bytes from the buffer directly.
int32_t read_byte(URL url) {
  std::FILE* const stream = http_of(url)->stream;
#ifdef __GLIBC__
  // What glibc's getc_unlocked() does inline.
  if (stream->_IO_read_ptr < stream->_IO_read_end) {
    return static_cast<unsigned char>(*stream->_IO_read_ptr++);
  }
#endif
  return read_byte_or_none(stream);
}

void close_stream(URL url) {
  const int saved_errno = errno;
  if (http_of(url)->stream != nullptr) socket_fclose(http_of(url)->stream);
  std::free(url);
  errno = saved_errno;
}

OwnedStream new_stream(const HttpTimeout* timeout) {
  const int32_t size =
      timeout != nullptr ? timeout->record_size : int32_t{sizeof(URL_http)};
  OwnedStream stream(http_of(alloc_url(size)));
  if (stream == nullptr) {
    url_errno = errno;
    return stream;
  }
  stream->common.type = URL_HTTP;
  stream->common.read = read_body;
  stream->common.gets = read_line;
  stream->common.fgetc = read_byte;
  stream->common.seek = nullptr;
  stream->common.tell = nullptr;
  stream->common.close = close_stream;
  stream->peer_address = 0;
  stream->stream = nullptr;
  return stream;
}

// --- The URL.

struct Request {
  const char* connect_to;  // name of the server or the proxy
  uint16_t port;
  const char* target;
  char host[kMaxHostLength + 1];  // the value of the Host header
  const char* user_agent;         // null sends none
  const int64_t* offset;          // null: the whole resource, with HTTP/1.0
};

const char* after_scheme(const char* url) {
  const size_t length = sizeof kScheme - 1;
  return std::strncmp(url, kScheme, length) == 0 ? url + length : url;
}

// Like strtol() with a 32-bit long, on every target.
int32_t parse_int32(const char* digits) {
  const long value = std::strtol(digits, nullptr, 10);
  return static_cast<int32_t>(
      std::clamp(value, static_cast<long>(INT32_MIN), static_cast<long>(INT32_MAX)));
}

void set_host(Request* request, const char* name, size_t length) {
  std::memcpy(request->host, name, length);
  request->host[length] = '\0';
}

// Fills in the request for the proxy. False if the target does not fit into a request line.
bool address_proxy(Request* request, const char* url) {
  request->connect_to = url_http_proxy_host;
  request->port = url_http_proxy_port;
  request->target = url;
  const char* const name = after_scheme(url);
  const size_t length = std::strcspn(name, ":/");
  if (length >= kMaxHostLength) {
    set_host(request, "localhost", sizeof "localhost" - 1);
  } else {
    set_host(request, name, length);
  }
  return std::strlen(url) + sizeof "GET  HTTP/1.0\r\n" <= kWorkSize;
}

// The same for a direct connection; `work` gets the server's name. The URL's text is sent
// as it is: line ends in a URL inject headers.
bool address_server(Request* request, const char* url, char (&work)[kWorkSize]) {
  const char* const name = after_scheme(url);
  if (std::strlen(name) + sizeof "GET  HTTP/1.0\r\n" >= kWorkSize) return false;
  const size_t length = std::strcspn(name, ":/");
  std::memcpy(work, name, length);
  work[length] = '\0';
  request->connect_to = work;
  // Only the header is cut: a cut name could belong to another server.
  set_host(request, name, std::min(length, kMaxHostLength));

  request->port = kDefaultPort;
  const char* path = name + length;
  if (*path == ':') {
    request->port = static_cast<uint16_t>(parse_int32(path + 1));
    path += std::strcspn(path, "/");
  }
  request->target = *path == '/' ? path : "/";
  return true;
}

// --- The request.

// Collects the lines of a request, so that a request of normal length is one write and one
// segment.
class RequestWriter {
 public:
  RequestWriter(int fd, char (&work)[kWorkSize]) : fd_(fd), work_(work) {}

  // Each line alone must fit into the work buffer.
  __attribute__((format(printf, 2, 3))) void add(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    int length = format_line(format, args);
    if (length < 0 || static_cast<size_t>(length) >= kWorkSize - used_) {
      send();
      length = format_line(format, again);
    }
    // A line that the formatter rejects is left out, and must not be counted.
    if (length > 0) used_ += static_cast<size_t>(length);
    va_end(again);
    va_end(args);
  }

  // Reports no failure: it shows in the missing response, and a response that was sent
  // before the server closed can still be read.
  void send() {
    const char* rest = work_;
    while (used_ > 0) {
      const int64_t sent = socket_write(fd_, rest, static_cast<int64_t>(used_));
      if (sent == -1 && errno == EINTR) continue;
      if (sent <= 0) break;
      rest += sent;
      used_ -= static_cast<size_t>(sent);
    }
    used_ = 0;
  }

 private:
  __attribute__((format(printf, 2, 0))) int format_line(const char* format, va_list args) {
    return std::vsnprintf(work_ + used_, kWorkSize - used_, format, args);
  }

  const int fd_;
  char (&work_)[kWorkSize];
  size_t used_ = 0;
};

// The two kinds of request differ in the order of their headers and in the user agent.
// Deliberate: servers see exactly these bytes.
void send_request(int fd, const Request& request, char (&work)[kWorkSize]) {
  RequestWriter writer(fd, work);
  if (request.offset == nullptr) {
    writer.add("GET %s HTTP/1.0\r\n", request.target);
    if (request.user_agent != nullptr) {
      writer.add("User-Agent: %s\r\n", request.user_agent);
    }
    writer.add("Host: %s\r\n", request.host);
  } else {
    writer.add("GET %s HTTP/1.1\r\n", request.target);
    writer.add("Host: %s\r\n", request.host);
    if (*request.offset > 0) {
      writer.add("Range: bytes=%lld-\r\n", static_cast<long long>(*request.offset));
    }
    writer.add("User-Agent: %s\r\n", request.user_agent);
  }
  writer.add("\r\n");
  writer.send();
  if (request.offset != nullptr) socket_shutdown(fd, SHUT_WR);
}

// --- The response.

bool starts_with(const char* text, const char* start) {
  return std::strncmp(text, start, std::strlen(start)) == 0;
}

// Reads the status line. False with both error variables set if there is no usable
// response.
bool read_status(URL stream, char (&work)[kWorkSize]) {
  // Cleared to distinguish a server that just closes from a broken connection.
  errno = 0;
  if (stream->gets(stream, work, kWorkSize) == nullptr) {
    if (errno == 0) {
      failed(URLERR_CANT_OPEN, ENOENT);
    } else {
      url_errno = errno;
    }
    return false;
  }
  const char* status = work;
  if (starts_with(work, "HTTP/1.0 ") || starts_with(work, "HTTP/1.1 ")) status += 9;
  if (starts_with(status, "200") || starts_with(status, "206")) return true;
  failed(starts_with(status, "404") ? URLERR_HTTP_NOT_FOUND : ENOENT, ENOENT);
  return false;
}

// The read limit of a whole resource; -1, no limit, if the number does not fit.
int32_t whole_limit(const char* length) {
  const int32_t value = parse_int32(length);
  return value == INT32_MIN || value == INT32_MAX ? -1 : value;
}

// The same for a resource from an offset on. Kept: the limit includes the offset, although
// the stream begins there.
int32_t limit_with_offset(int64_t offset, const char* length) {
  const auto rest = static_cast<uint64_t>(std::strtoll(length, nullptr, 10));
  const auto sum = static_cast<int64_t>(rest + static_cast<uint64_t>(offset));
  return sum == INT32_MIN || sum == INT32_MAX ? -1 : static_cast<int32_t>(sum);
}

// Returns the next header line; null at the end, with errno 0 unless reading failed.
const char* next_header(URL stream, char (&work)[kWorkSize]) {
  errno = 0;
  if (stream->gets(stream, work, kWorkSize) == nullptr) return nullptr;
  errno = 0;  // ignores a failure to allocate the stream's buffer
  return work[0] == '\n' || (work[0] == '\r' && work[1] == '\n') ? nullptr : work;
}

// Reads to the end of the headers; the last length counts. False with both error variables
// set if reading fails: the remaining headers would be taken for the body.
bool read_headers(URL stream, const int64_t* offset, char (&work)[kWorkSize]) {
  while (next_header(stream, work) != nullptr) {
    if (!starts_with(work, kContentLength)) continue;
    const char* const length = work + sizeof kContentLength - 1;
    url_set_readlimit(stream, offset == nullptr ? whole_limit(length)
                                                : limit_with_offset(*offset, length));
  }
  if (errno == 0) return true;
  url_errno = errno;
  return false;
}

// --- Opening.

// Connects a stream. False with both error variables set on failure.
bool connect_stream(URL_http* stream, const Request& request, const HttpTimeout* timeout) {
  const char* const host = request.connect_to;
  uint32_t* const peer = &stream->peer_address;
  UniqueFd fd(timeout == nullptr ? open_socket(host, request.port, peer)
                                 : open_socket_with(host, request.port, peer,
                                                    timeout->wait_until_settled));
  if (fd.get() == -1) {
    // Whatever the cause, the application sees a server that does not respond.
    failed(ETIMEDOUT, ETIMEDOUT);
    return false;
  }
  stream->stream = socket_fdopen(fd.get(), "rb");
  if (stream->stream == nullptr) {
    url_errno = errno;
    return false;
  }
  fd.release();
  __fsetlocking(stream->stream, FSETLOCKING_BYCALLER);
  return true;
}

// Requests the whole resource if `offset` is null, and reads up to the body. False with
// both error variables set on failure.
MAY_BE_LEFT bool begin(URL_http* stream, const char* url, const int64_t* offset,
                       const HttpTimeout* timeout) {
  char work[kWorkSize];
  Request request;
  request.offset = offset;
  request.user_agent = url_user_agent;
  const bool target_fits = url_http_proxy_host != nullptr
                               ? address_proxy(&request, url)
                               : address_server(&request, url, work);
  // Checked before connecting: a request must not be sent truncated.
  if (!target_fits ||
      (request.user_agent != nullptr &&
       std::strlen(request.user_agent) + sizeof "User-Agent: \r\n" > kWorkSize)) {
    failed(URLERR_TOO_LONG, ENOENT);
    return false;
  }
  if (!connect_stream(stream, request, timeout)) return false;
  if (timeout != nullptr) timeout->begin(stream);
  send_request(fileno(stream->stream), request, work);
  if (timeout != nullptr) timeout->await_headers(stream);
  const URL common = &stream->common;
  if (!read_status(common, work) || !read_headers(common, offset, work)) return false;
  if (timeout != nullptr) timeout->await_body(stream);
  return true;
}

void close_cancelled(void* stream) {
  close_stream(static_cast<URL>(stream));
}

// The same, but a thread that is cancelled meanwhile closes the stream. Not inlined: the
// handler's setjmp() would affect the caller's registers.
[[gnu::noinline]] MAY_BE_LEFT bool begin_or_close(URL_http* stream, const char* url,
                                                  const int64_t* offset,
                                                  const HttpTimeout* timeout) {
  bool begun = false;
  pthread_cleanup_push(close_cancelled, &stream->common);
  begun = begin(stream, url, offset, timeout);
  pthread_cleanup_pop(0);
  return begun;
}

URL open_stream(const char* url, const int64_t* offset) {
  const HttpTimeout* const timeout = http_timeout;
  OwnedStream stream = new_stream(timeout);
  if (stream == nullptr || !begin_or_close(stream.get(), url, offset, timeout)) {
    return nullptr;
  }
  return &stream.release()->common;
}

int32_t is_http(const char* url) {
  return starts_with(url, kScheme) ? 1 : 0;
}

}  // namespace

const HttpTimeout* groundwork::http_timeout = nullptr;

const char* url_http_proxy_host = nullptr;
uint16_t url_http_proxy_port = 0;
const char* url_user_agent = nullptr;
URL_module URL_module_http = {URL_HTTP, is_http, nullptr, url_http_open, nullptr};

extern "C" URL url_http_open(const char* url) {
  return open_stream(url, nullptr);
}

// Kept: overwrites the application's user agent, for all later requests, too.
extern "C" URL url_http_open_with_offset(const char* url, int64_t offset) {
  url_user_agent = "app";
  return open_stream(url, &offset);
}

// Prints a line that tools look for in an application's output.
extern "C" int32_t url_internal_sock(URL url) {
  const int fd = fileno(http_of(url)->stream);
  std::printf("g_url_http:%d socket=%d\n", kTraceLine, fd);
  return fd;
}
