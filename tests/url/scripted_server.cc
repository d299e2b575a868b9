// SPDX-License-Identifier: MIT

#include "url/scripted_server.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

constexpr int kPatienceMs = 20000;
constexpr int kStopCheckMs = 20;

[[noreturn]] void give_up(const char* what) {
  std::perror(what);
  std::abort();
}

sockaddr_storage loopback(int family, socklen_t* length) {
  sockaddr_storage address{};
  address.ss_family = static_cast<sa_family_t>(family);
  if (family == AF_INET6) {
    reinterpret_cast<sockaddr_in6&>(address).sin6_addr = in6addr_loopback;
    *length = sizeof(sockaddr_in6);
  } else {
    reinterpret_cast<sockaddr_in&>(address).sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    *length = sizeof(sockaddr_in);
  }
  return address;
}

// A socket bound to a free port of the loopback address; -1 where the family has none.
int bound_socket(int family, uint16_t* port) {
  socklen_t length = 0;
  sockaddr_storage address = loopback(family, &length);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  const int fd = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd == -1 || bind(fd, generic, length) == -1 ||
      getsockname(fd, generic, &length) == -1) {
    if (fd != -1) close(fd);
    return -1;
  }
  *port = ntohs(family == AF_INET6 ? reinterpret_cast<sockaddr_in6&>(address).sin6_port
                                   : reinterpret_cast<sockaddr_in&>(address).sin_port);
  return fd;
}

bool readable(int fd, int timeout_ms) {
  pollfd wait{fd, POLLIN, 0};
  return poll(&wait, 1, timeout_ms) > 0;
}

}  // namespace

namespace test {

bool Connection::read_some() {
  char buffer[16384];
  if (!readable(fd_, kPatienceMs)) return false;
  const ssize_t n = recv(fd_, buffer, sizeof buffer, 0);
  if (n <= 0) return false;
  received_.append(buffer, static_cast<size_t>(n));
  return true;
}

void Connection::read_request() {
  while (received_.find("\r\n\r\n") == std::string::npos && read_some()) {
  }
}

void Connection::read_to_end() {
  while (read_some()) {
  }
}

void Connection::send(std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = ::send(fd_, text.data(), text.size(), MSG_NOSIGNAL);
    if (n <= 0) return;
    text.remove_prefix(static_cast<size_t>(n));
  }
}

void Connection::send_slowly(std::string_view text) {
  const int on = 1;
  setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  for (const char byte : text) {
    send(std::string_view(&byte, 1));
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
}

void Connection::reset() {
  const linger at_once{1, 0};
  setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

ScriptedServer::ScriptedServer(Script script, int family)
    : script_(std::move(script)), listener_(bound_socket(family, &port_)) {
  if (listener_ == -1 || listen(listener_, 64) == -1) give_up("scripted server");
  thread_ = std::thread([this] { serve(); });
}

ScriptedServer::ScriptedServer(const std::string& reply)
    : ScriptedServer([reply](Connection& connection) {
        connection.read_request();
        connection.send(reply);
      }) {}

ScriptedServer::~ScriptedServer() {
  stopping_ = true;
  thread_.join();
  close(listener_);
}

void ScriptedServer::serve() {
  while (!stopping_) {
    if (!readable(listener_, kStopCheckMs)) continue;
    const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd == -1) continue;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      ++accepted_;
    }
    Connection connection(fd);
    script_(connection);
    // Whatever the client still sends belongs to its request, and is taken so that closing
    // does not turn into a reset.
    linger lingering{};
    socklen_t size = sizeof lingering;
    getsockopt(fd, SOL_SOCKET, SO_LINGER, &lingering, &size);
    if (lingering.l_onoff == 0) {
      shutdown(fd, SHUT_WR);
      connection.read_to_end();
    }
    close(fd);
    const std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(connection.received());
    changed_.notify_all();
  }
}

std::string ScriptedServer::url(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + std::string(path);
}

std::string ScriptedServer::request(size_t index) {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait_for(lock, std::chrono::milliseconds(kPatienceMs),
                    [&] { return requests_.size() > index; });
  return requests_.size() > index ? requests_[index] : "no connection was served";
}

size_t ScriptedServer::connections() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return accepted_;
}

uint16_t unused_port() {
  uint16_t port = 0;
  const int fd = bound_socket(AF_INET, &port);
  if (fd == -1) give_up("unused port");
  close(fd);
  return port;
}

bool has_ipv6_loopback() {
  uint16_t port = 0;
  const int fd = bound_socket(AF_INET6, &port);
  if (fd == -1) return false;
  close(fd);
  return true;
}

DeafServer::DeafServer() : listener_(bound_socket(AF_INET, &port_)) {
  if (listener_ == -1 || listen(listener_, 0) == -1) give_up("deaf server");
  socklen_t length = 0;
  sockaddr_storage address = loopback(AF_INET, &length);
  reinterpret_cast<sockaddr_in&>(address).sin_port = htons(port_);
  // Connections until one is not made: now the queue is full.
  for (int i = 0; i < 64; ++i) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd == -1) give_up("deaf server");
    queued_.push_back(fd);
    connect(fd, reinterpret_cast<const sockaddr*>(&address), length);
    pollfd wait{fd, POLLOUT, 0};
    if (poll(&wait, 1, 300) == 0) return;
  }
}

DeafServer::~DeafServer() {
  for (const int fd : queued_) close(fd);
  close(listener_);
}

}  // namespace test
