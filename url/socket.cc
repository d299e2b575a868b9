// TCP connections with a limited wait, and the calls through which the HTTP module uses
// them: another transport would be added only here.
//
// SPDX-License-Identifier: MIT

#include <groundwork/url.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "url/socket.h"
#include "url/unique_fd.h"

using namespace groundwork;

namespace {

constexpr int kConnectTimeoutMs = 5000;
constexpr int64_t kLeastDirect = 4096;  // smaller reads are faster through the buffer

// An address of either family.
struct Endpoint {
  sockaddr_storage address;
  socklen_t length;
};

// The name's first address of `family`; null if it has none. Not gethostbyname2_r(): the
// resolver's static buffer is enough, since streams are opened by one thread at a time.
const char* first_address(const char* host, int family, size_t* length) {
  const hostent* const entry = gethostbyname2(host, family);
  if (entry == nullptr || entry->h_addr_list[0] == nullptr) return nullptr;
  *length = static_cast<size_t>(std::max(entry->h_length, 0));
  return entry->h_addr_list[0];
}

// IPv4 first; IPv6 only for a host without an IPv4 address.
bool resolve(const char* host, in_port_t port, Endpoint* endpoint, uint32_t* ipv4) {
  size_t length = 0;
  *endpoint = {};
  if (const char* const found = first_address(host, AF_INET, &length)) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = port;
    std::memcpy(&to.sin_addr, found, std::min(length, sizeof to.sin_addr));
    std::memcpy(&endpoint->address, &to, sizeof to);
    endpoint->length = sizeof to;
    *ipv4 = to.sin_addr.s_addr;
    return true;
  }
  if (const char* const found = first_address(host, AF_INET6, &length)) {
    sockaddr_in6 to{};
    to.sin6_family = AF_INET6;
    to.sin6_port = port;
    std::memcpy(&to.sin6_addr, found, std::min(length, sizeof to.sin6_addr));
    std::memcpy(&endpoint->address, &to, sizeof to);
    endpoint->length = sizeof to;
    *ipv4 = 0;
    return true;
  }
  return false;
}

// Waits until the connection is made or has failed. A signal ends the wait and the attempt,
// like the time-out. Uses poll(), since select() overruns its set with a descriptor above
// 1023.
MAY_BE_LEFT bool wait_until_settled(int fd) {
  pollfd wait{};
  wait.fd = fd;
  wait.events = POLLOUT;
  return poll(&wait, 1, kConnectTimeoutMs) > 0;
}

void report(const char* what, int error) {
  const int saved_errno = errno;
  std::fprintf(stderr, "%s : %s\n", what, std::strerror(error));
  errno = saved_errno;
}

// Always makes both checks, so that each failure is reported.
bool is_connected(int fd) {
  int pending = 0;
  socklen_t size = sizeof pending;
  bool connected = true;
  if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &pending, &size) == -1) {
    report("getsockopt failed", errno);
    connected = false;
  }
  if (pending >= 1) {
    report("Connect error", pending);
    connected = false;
  }
  return connected;
}

// Returns true if the socket is connected and blocks.
MAY_BE_LEFT bool connect_socket(int fd, const Endpoint& endpoint, WaitUntilSettled wait) {
  // An immediate connection, as on loopback, goes through the wait like any other.
  if (connect(fd, reinterpret_cast<const sockaddr*>(&endpoint.address), endpoint.length) ==
          -1 &&
      errno != EINPROGRESS) {
    return false;
  }
  if (!wait(fd)) return false;
  // Callers rely on blocking reads: a socket that stays non-blocking is of no use.
  int non_blocking = 0;
  return ioctl(fd, FIONBIO, &non_blocking) != -1 && is_connected(fd);
}

void close_cancelled(void* fd) {
  close_descriptor(*static_cast<const int*>(fd));
}

// The same, but a thread that is cancelled meanwhile closes the socket. Not inlined: the
// handler's setjmp() would affect the caller's registers.
[[gnu::noinline]] MAY_BE_LEFT bool connect_or_close(int fd, const Endpoint& endpoint,
                                                    WaitUntilSettled wait) {
  bool connected = false;
  pthread_cleanup_push(close_cancelled, &fd);
  connected = connect_socket(fd, endpoint, wait);
  pthread_cleanup_pop(0);
  return connected;
}

#ifdef __GLIBC__
// The number of bytes in the buffer; -1 if some were pushed back, which are stored
// elsewhere.
int64_t buffered_bytes(const FILE* stream) {
  if (stream->_IO_save_base != nullptr) return -1;
  return stream->_IO_read_end - stream->_IO_read_ptr;
}
#endif

}  // namespace

void groundwork::close_descriptor(int fd) {
  const int saved_errno = errno;
  int former_state = PTHREAD_CANCEL_ENABLE;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &former_state);
  close(fd);
  pthread_setcancelstate(former_state, nullptr);
  errno = saved_errno;
}

int64_t groundwork::socket_fill(void* buf, int64_t n, FILE* stream) {
#ifdef __GLIBC__
  const int64_t buffered = buffered_bytes(stream);
  if (buffered < 0 || n - buffered < kLeastDirect) {
    return socket_fread(buf, n, stream);
  }
  const int saved_errno = errno;
  int64_t total = socket_fread(buf, buffered, stream);
  if (total < buffered) return total;  // the socket's bytes come after those still buffered
  while (total < n) {
    char* const rest = static_cast<char*>(buf) + total;
    const ssize_t count = recv(fileno(stream), rest, static_cast<size_t>(n - total), 0);
    if (count > 0) {
      total += count;
      continue;
    }
    // A program may have replaced our stream with one of another kind.
    if (count == -1 && (errno == ENOTSOCK || errno == EBADF)) {
      errno = saved_errno;
      return total + socket_fread(rest, n - total, stream);
    }
    stream->_flags |= count == 0 ? _IO_EOF_SEEN : _IO_ERR_SEEN;  // as fread() does
    break;
  }
  return total;
#else
  return socket_fread(buf, n, stream);
#endif
}

MAY_BE_LEFT int32_t groundwork::open_socket_with(const char* host, int32_t port,
                                                 uint32_t* addr_out,
                                                 WaitUntilSettled wait) {
  Endpoint endpoint;
  uint32_t ipv4 = 0;
  if (!resolve(host, htons(static_cast<uint16_t>(port)), &endpoint, &ipv4)) return -1;
  if (addr_out != nullptr) *addr_out = ipv4;

  UniqueFd fd(
      kept_above_output(socket(endpoint.address.ss_family,
                               SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP)));
  if (fd.get() == -1 || !connect_or_close(fd.get(), endpoint, wait)) return -1;
  return fd.release();
}

extern "C" int32_t open_socket(const char* host, int32_t port, uint32_t* addr_out) {
  return open_socket_with(host, port, addr_out, wait_until_settled);
}

// send() rather than write(): after the peer has closed, the result must be EPIPE, not a
// SIGPIPE that kills the application.
extern "C" int64_t socket_write(int fd, const void* buf, int64_t len) {
  const auto size = static_cast<size_t>(len);
  const ssize_t sent = send(fd, buf, size, MSG_NOSIGNAL);
  if (sent == -1 && errno == ENOTSOCK) return write(fd, buf, size);
  return sent;
}

extern "C" int socket_shutdown(int fd, int how) {
  return shutdown(fd, how);
}

extern "C" FILE* socket_fdopen(int fd, const char* mode) {
  return fdopen(fd, mode);
}

extern "C" char* socket_fgets(char* buf, int n, FILE* stream) {
  return std::fgets(buf, n, stream);
}

extern "C" int socket_fgetc(FILE* stream) {
  return std::getc(stream);
}

extern "C" int64_t socket_fread(void* buf, int64_t n, FILE* stream) {
  return static_cast<int64_t>(std::fread(buf, 1, static_cast<size_t>(n), stream));
}

extern "C" int64_t socket_fwrite(const void* buf, int64_t n, FILE* stream) {
  return static_cast<int64_t>(std::fwrite(buf, 1, static_cast<size_t>(n), stream));
}

extern "C" int socket_fclose(FILE* stream) {
  return std::fclose(stream);
}

extern "C" int socket_fflush(FILE* stream) {
  return std::fflush(stream);
}
