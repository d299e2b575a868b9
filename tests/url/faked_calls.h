// System calls of the library under a test's control.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_URL_FAKED_CALLS_H
#define GROUNDWORK_TESTS_URL_FAKED_CALLS_H

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <functional>

namespace test {

// While alive, the calls that are set here replace the system's on this thread; real_*()
// still reach those. One object at a time.
struct FakedCalls {
  FakedCalls();
  ~FakedCalls();
  FakedCalls(const FakedCalls&) = delete;
  FakedCalls& operator=(const FakedCalls&) = delete;

  std::function<hostent*(const char*, int)> gethostbyname2;
  std::function<int(int, int, int)> socket;
  std::function<int(int, const sockaddr*, socklen_t)> connect;
  std::function<int(pollfd*, nfds_t, int)> poll;
  std::function<int(int, int, int, void*, socklen_t*)> getsockopt;
  std::function<ssize_t(int, const void*, size_t, int)> send;
  std::function<int(int, unsigned long, void*)> ioctl;
};

hostent* real_gethostbyname2(const char* name, int family);
int real_socket(int family, int type, int protocol);
int real_connect(int fd, const sockaddr* address, socklen_t length);
int real_poll(pollfd* fds, nfds_t count, int timeout);
ssize_t real_send(int fd, const void* buf, size_t n, int flags);

// A gethostbyname2() that knows "six.test", which has only the address ::1, and asks the
// system about all others.
hostent* with_ipv6_only_host(const char* name, int family);

// How many descriptors the process has open, once that number is stable: the thread of a
// server in the same program may take a moment to close its own.
int open_descriptors();

// True once the process has this many open.
bool descriptors_return_to(int count);

}  // namespace test

#endif
