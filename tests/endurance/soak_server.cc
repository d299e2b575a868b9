// SPDX-License-Identifier: MIT

#include "endurance/soak_server.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace test {

namespace {

constexpr int kStopCheckMs = 50;

// Whether something can be read before the time runs out.
bool readable(int fd, int timeout_ms) {
  pollfd wait{fd, POLLIN, 0};
  return poll(&wait, 1, timeout_ms) > 0;
}

}  // namespace

SoakServer::SoakServer(const std::string& body)
    : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
      reply_("HTTP/1.0 200 OK\r\nContent-Length: " + std::to_string(body.size()) +
             "\r\n\r\n" + body) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (listener_ == -1 || bind(listener_, generic, length) != 0 ||
      getsockname(listener_, generic, &length) != 0 || listen(listener_, 16) != 0 ||
      pthread_create(&thread_, nullptr, run, this) != 0) {
    std::perror("soak server");
    std::abort();
  }
  url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
}

SoakServer::~SoakServer() {
  stopping_ = true;
  pthread_join(thread_, nullptr);
  close(listener_);
}

void* SoakServer::run(void* server) {
  const auto* const self = static_cast<const SoakServer*>(server);
  while (!self->stopping_) {
    if (!readable(self->listener_, kStopCheckMs)) continue;
    const int connection = accept4(self->listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection == -1) continue;
    self->serve(connection);
    close(connection);
  }
  return nullptr;
}

void SoakServer::serve(int connection) const {
  char request[2048];
  size_t filled = 0;
  do {
    if (filled + 1 >= sizeof request || !readable(connection, 10000)) return;
    const ssize_t n = recv(connection, request + filled, sizeof request - 1 - filled, 0);
    if (n <= 0) return;
    filled += static_cast<size_t>(n);
    request[filled] = '\0';
  } while (std::strstr(request, "\r\n\r\n") == nullptr);
  for (size_t sent = 0; sent < reply_.size();) {
    const ssize_t n =
        send(connection, reply_.data() + sent, reply_.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return;
    sent += static_cast<size_t>(n);
  }
}

}  // namespace test
