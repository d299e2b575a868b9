// Opens HTTP resources of any URL, receives any response and reads the rest of it, against
// a model of the request's bytes, of the response's parts and of the stream. The network is
// simulated: a connection is a file that holds the response.
//
// SPDX-License-Identifier: MIT

#include <groundwork/url.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include "fuzz/support/buffer.h"
#include "fuzz/support/check.h"
#include "fuzz/support/input.h"
#include "fuzz/url/stream_model.h"
#include "fuzz/url/stream_operations.h"

namespace {

using fuzz::StreamModel;

// --- The network.

constexpr uint32_t kAddress = 0x04030201;

struct Network {
  // What happens.
  bool knows_ipv4 = true;
  bool knows_ipv6 = true;
  bool accepts = true;
  bool breaks = false;      // instead of the response's first byte
  size_t longest_send = 1;  // of one call
  size_t longest_receive = 1;
  // What was seen.
  std::string host;
  int port = -1;
  int family = -1;
  std::string request;
  bool sending_ended = false;
};

Network network;

int response_file() {
  static const int file = memfd_create("response", MFD_CLOEXEC);
  return file;
}

void set_response(const std::string& response) {
  REQUIRE(ftruncate(response_file(), 0) == 0);
  REQUIRE(pwrite(response_file(), response.data(), response.size(), 0) ==
          static_cast<ssize_t>(response.size()));
}

// --- The request.

struct Expected {
  int error = 0;              // url_errno of a failure before or after connecting
  int system_error = ENOENT;  // errno of the failure
  std::string connect_to;
  int port = 80;
  std::string request;
};

int32_t clamped(long long number) {
  return static_cast<int32_t>(std::clamp(number, static_cast<long long>(INT32_MIN),
                                         static_cast<long long>(INT32_MAX)));
}

struct Question {
  std::string url;
  std::optional<std::string> proxy;
  uint16_t proxy_port = 0;
  std::optional<std::string> agent;
  std::optional<int64_t> offset;
};

Expected model_request(const Question& question) {
  Expected expected;
  const std::string scheme = "http://";
  const std::string name =
      question.url.starts_with(scheme) ? question.url.substr(scheme.size()) : question.url;
  const size_t end = std::min(name.find_first_of(":/"), name.size());
  std::string host = name.substr(0, end);
  std::string target;
  if (question.proxy.has_value()) {
    expected.connect_to = *question.proxy;
    expected.port = question.proxy_port;
    target = question.url;
    if (host.size() >= 255) host = "localhost";
    // A request line of more is refused, as it is without a proxy.
    if (question.url.size() + 16 > 8192) expected.error = URLERR_TOO_LONG;
  } else {
    if (name.size() + 16 >= 8192) expected.error = URLERR_TOO_LONG;
    expected.connect_to = host;
    std::string rest = name.substr(end);
    if (rest.starts_with(':')) {
      expected.port = clamped(std::strtoll(rest.c_str() + 1, nullptr, 10)) & 0xffff;
      rest = rest.substr(std::min(rest.find('/'), rest.size()));
    }
    target = rest.empty() ? "/" : rest;
    host = host.substr(0, 255);
  }
  std::string& request = expected.request;
  request = "GET " + target;
  if (!question.offset.has_value()) {
    request += " HTTP/1.0\r\n";
    if (question.agent.has_value()) request += "User-Agent: " + *question.agent + "\r\n";
    request += "Host: " + host + "\r\n\r\n";
  } else {
    request += " HTTP/1.1\r\nHost: " + host + "\r\n";
    if (*question.offset > 0) {
      request += "Range: bytes=" + std::to_string(*question.offset) + "-\r\n";
    }
    request += "User-Agent: app\r\n\r\n";
  }
  return expected;
}

// --- The response.

// As fgets() with a buffer of 8192 bytes; empty at the end.
std::string take_line(const std::string& response, size_t& at) {
  const size_t end = std::min(response.find('\n', at), response.size());
  const size_t length = std::min({end + 1 - at, response.size() - at, size_t{8191}});
  const std::string line = response.substr(at, length);
  at += length;
  return line;
}

// Returns url_errno, 0 for success; then `model` is the stream.
int model_response(const std::string& response, std::optional<int64_t> offset,
                   StreamModel& model) {
  size_t at = 0;
  if (response.empty()) return URLERR_CANT_OPEN;
  std::string status = take_line(response, at).c_str();
  if (status.starts_with("HTTP/1.0 ") || status.starts_with("HTTP/1.1 ")) {
    status = status.substr(9);
  }
  if (!status.starts_with("200") && !status.starts_with("206")) {
    return status.starts_with("404") ? static_cast<int>(URLERR_HTTP_NOT_FOUND) : ENOENT;
  }
  while (at < response.size()) {
    const std::string line = take_line(response, at).c_str();
    if (line.starts_with("\n") || line.starts_with("\r\n")) break;
    const std::string name = "Content-Length:";
    if (!line.starts_with(name)) continue;
    const long long value = std::strtoll(line.c_str() + name.size(), nullptr, 10);
    int32_t limit;
    if (!offset.has_value()) {
      limit = clamped(value);
      if (limit == INT32_MIN || limit == INT32_MAX) limit = -1;
    } else {
      const auto sum = static_cast<int64_t>(static_cast<uint64_t>(value) +
                                            static_cast<uint64_t>(*offset));
      limit = sum == INT32_MAX || sum == INT32_MIN ? -1 : static_cast<int32_t>(sum);
    }
    model.set_limit(limit);
  }
  model.bytes = response.substr(at);
  return 0;
}

void compare_connection(const Expected& expected) {
  REQUIRE_EQUAL(network.host, expected.connect_to);
  if (!network.knows_ipv4 && !network.knows_ipv6) return;
  REQUIRE_EQUAL(network.family, network.knows_ipv4 ? AF_INET : AF_INET6);
  REQUIRE_EQUAL(network.port, expected.port);
}

const char* or_null(const std::optional<std::string>& text) {
  return text.has_value() ? text->c_str() : nullptr;
}

Network network_from(uint8_t faults) {
  Network result;
  result.knows_ipv4 = (faults & 1) == 0;
  result.knows_ipv6 = (faults & 2) == 0;
  result.accepts = (faults & 4) == 0;
  result.breaks = (faults & 8) != 0;
  result.longest_send = (faults & 16) != 0 ? 7 : 100000;
  result.longest_receive = (faults & 32) != 0 ? 33 : 100000;
  return result;
}

Question question_from(fuzz::Input& input, uint8_t options) {
  Question question;
  if ((options & 1) != 0) question.offset = input.int64();
  if ((options & 2) != 0) question.proxy_port = input.word();
  if ((options & 2) != 0) question.proxy = input.field('\0');
  if ((options & 4) != 0) question.agent = input.field('\0');
  question.url = input.field('\0');
  // Longer ones than fit, from short inputs.
  if ((options & 8) != 0) question.url.append(32U * input.byte() + input.byte() % 64, 'x');
  return question;
}

URL open_url(const Question& question) {
  url_http_proxy_host = or_null(question.proxy);
  url_http_proxy_port = question.proxy_port;
  url_user_agent = or_null(question.agent);
  url_errno = 0;
  const fuzz::Text text(question.url);
  return question.offset.has_value()
             ? url_http_open_with_offset(text.data(), *question.offset)
             : url_http_open(text.data());
}

// Compares what the network saw with what the question should have sent. The result has the
// errors that the opening should have; without one, `model` becomes the stream.
Expected check_request(const Question& question, const std::string& response,
                       StreamModel& model) {
  model.kind = StreamModel::kHttp;
  model.has_seek = model.has_tell = false;
  url_newline_code = model.newline;
  Expected expected = model_request(question);
  if (expected.error != 0) return expected;
  compare_connection(expected);
  if (!network.accepts || (!network.knows_ipv4 && !network.knows_ipv6)) {
    expected.error = expected.system_error = ETIMEDOUT;
    return expected;
  }
  REQUIRE_EQUAL(network.request, expected.request);
  REQUIRE_EQUAL(network.sending_ended, question.offset.has_value());
  if (network.breaks) {
    expected.error = expected.system_error = EISDIR;
  } else {
    expected.error = model_response(response, question.offset, model);
  }
  return expected;
}

}  // namespace

// --- These come before the C library's.

extern "C" {

hostent* gethostbyname2(const char* name, int family) {
  static in6_addr address{};
  static char* addresses[] = {reinterpret_cast<char*>(&address), nullptr};
  static hostent found{};
  network.host = name;
  if (family == AF_INET ? !network.knows_ipv4 : !network.knows_ipv6) return nullptr;
  address = {};
  if (family == AF_INET) std::memcpy(&address, &kAddress, sizeof kAddress);
  found.h_addrtype = family;
  found.h_length = family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr);
  found.h_addr_list = addresses;
  return &found;
}

int socket(int family, int, int) noexcept {
  network.family = family;
  if (network.breaks) return open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const int copy = fcntl(response_file(), F_DUPFD_CLOEXEC, 3);
  lseek(copy, 0, SEEK_SET);
  return copy;
}

int connect(int, const sockaddr* address, socklen_t length) {
  // The port is at the same offset in the addresses of both families.
  sockaddr_in to{};
  std::memcpy(&to, address, std::min<size_t>(length, sizeof to));
  network.port = ntohs(to.sin_port);
  errno = network.accepts ? EINPROGRESS : ECONNREFUSED;
  return -1;
}

int poll(pollfd* descriptors, nfds_t, int) {
  descriptors->revents = POLLOUT;
  return 1;
}

int getsockopt(int, int, int, void* value, socklen_t* size) noexcept {
  std::memset(value, 0, *size);
  return 0;
}

ssize_t send(int, const void* bytes, size_t size, int) {
  size = std::min(size, network.longest_send);
  network.request.append(static_cast<const char*>(bytes), size);
  return static_cast<ssize_t>(size);
}

// Large reads bypass the stream's buffer.
ssize_t recv(int fd, void* bytes, size_t size, int) {
  return read(fd, bytes, std::min(size, network.longest_receive));
}

int shutdown(int, int how) noexcept {
  REQUIRE_EQUAL(how, static_cast<int>(SHUT_WR));
  network.sending_ended = true;
  return 0;
}

}  // extern "C"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const uint8_t options = input.byte();
  network = network_from(input.byte());
  const Question question = question_from(input, options);
  const std::string operation_bytes = input.bytes(input.byte());
  fuzz::Input operations(reinterpret_cast<const uint8_t*>(operation_bytes.data()),
                         operation_bytes.size());
  const std::string response = input.rest();
  set_response(response);

  const URL url = open_url(question);
  const int error = errno;
  StreamModel model;
  const Expected expected = check_request(question, response, model);
  REQUIRE_EQUAL(url != nullptr, expected.error == 0);
  if (url == nullptr) {
    REQUIRE_EQUAL(url_errno, expected.error);
    REQUIRE_EQUAL(error, expected.system_error);
    return 0;
  }
  REQUIRE_EQUAL(url->type, static_cast<int>(URL_HTTP));
  REQUIRE_EQUAL(reinterpret_cast<URL_http*>(url)->peer_address,
                network.knows_ipv4 ? kAddress : 0);
  fuzz::compare_state(url, model);
  while (!operations.empty()) fuzz::run_operation(operations, url, model);
  url_close(url);
  return 0;
}
