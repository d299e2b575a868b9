// Defined in the program, these functions come before the C library's for the library under
// test. It was compiled for 64-bit times, which gives some of them other names; so is this
// file.
//
// SPDX-License-Identifier: MIT

#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif
#ifndef _TIME_BITS
#define _TIME_BITS 64
#endif

#include "url/faked_calls.h"
#include "support/next_function.h"

#include <dirent.h>
#include <netinet/in.h>
#include <sys/ioctl.h>

#include <chrono>
#include <cstdarg>
#include <cstring>
#include <thread>

#include "support/uncounted_allocations.h"

namespace {

#if defined(__GLIBC__) && defined(__USE_TIME_BITS64)
constexpr char kGetsockopt[] = "__getsockopt64";
constexpr char kIoctl[] = "__ioctl_time64";
#else
constexpr char kGetsockopt[] = "getsockopt";
constexpr char kIoctl[] = "ioctl";
#endif

thread_local test::FakedCalls* faked = nullptr;

}  // namespace

namespace test {

FakedCalls::FakedCalls() {
  faked = this;
}

FakedCalls::~FakedCalls() {
  faked = nullptr;
}

hostent* real_gethostbyname2(const char* name, int family) {
  static auto* const function =
      test::next_function<hostent*(const char*, int)>("gethostbyname2");
#ifndef __GLIBC__
  const test::UncountedAllocations uncounted;  // musl keeps the record for its next call
#endif
  return function(name, family);
}

int real_socket(int family, int type, int protocol) {
  static auto* const function = test::next_function<int(int, int, int)>("socket");
  return function(family, type, protocol);
}

int real_connect(int fd, const sockaddr* address, socklen_t length) {
  static auto* const function =
      test::next_function<int(int, const sockaddr*, socklen_t)>("connect");
  return function(fd, address, length);
}

int real_poll(pollfd* fds, nfds_t count, int timeout) {
  static auto* const function = test::next_function<int(pollfd*, nfds_t, int)>("poll");
  return function(fds, count, timeout);
}

ssize_t real_send(int fd, const void* buf, size_t n, int flags) {
  static auto* const function =
      test::next_function<ssize_t(int, const void*, size_t, int)>("send");
  return function(fd, buf, n, flags);
}

hostent* with_ipv6_only_host(const char* name, int family) {
  if (std::strcmp(name, "six.test") != 0) return real_gethostbyname2(name, family);
  if (family != AF_INET6) return nullptr;
  static in6_addr address = in6addr_loopback;
  static char* addresses[] = {reinterpret_cast<char*>(&address), nullptr};
  static hostent entry{};
  entry.h_addrtype = AF_INET6;
  entry.h_length = sizeof address;
  entry.h_addr_list = addresses;
  return &entry;
}

namespace {

int count_descriptors() {
  DIR* const directory = opendir("/proc/self/fd");
  if (directory == nullptr) return -1;
  int count = 0;
  while (readdir(directory) != nullptr) ++count;
  closedir(directory);
  return count;
}

}  // namespace

int open_descriptors() {
  int count = count_descriptors();
  for (int still = 0; still < 5; ++still) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (const int now = count_descriptors(); now != count) {
      count = now;
      still = 0;
    }
  }
  return count;
}

bool descriptors_return_to(int count) {
  for (int tries = 0; tries < 500; ++tries) {
    if (count_descriptors() == count) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

}  // namespace test

extern "C" hostent* gethostbyname2(const char* name, int family) {
  if (faked == nullptr || !faked->gethostbyname2)
    return test::real_gethostbyname2(name, family);
  return faked->gethostbyname2(name, family);
}

extern "C" int socket(int family, int type, int protocol) noexcept {
  if (faked == nullptr || !faked->socket) return test::real_socket(family, type, protocol);
  return faked->socket(family, type, protocol);
}

extern "C" int connect(int fd, const sockaddr* address, socklen_t length) {
  if (faked == nullptr || !faked->connect) return test::real_connect(fd, address, length);
  return faked->connect(fd, address, length);
}

extern "C" int poll(pollfd* fds, nfds_t count, int timeout) {
  if (faked == nullptr || !faked->poll) return test::real_poll(fds, count, timeout);
  return faked->poll(fds, count, timeout);
}

extern "C" ssize_t send(int fd, const void* buf, size_t n, int flags) {
  if (faked == nullptr || !faked->send) return test::real_send(fd, buf, n, flags);
  return faked->send(fd, buf, n, flags);
}

extern "C" int getsockopt(int fd, int level, int name, void* value,
                          socklen_t* size) noexcept {
  if (faked == nullptr || !faked->getsockopt) {
    static auto* const function =
        test::next_function<int(int, int, int, void*, socklen_t*)>(kGetsockopt);
    return function(fd, level, name, value, size);
  }
  return faked->getsockopt(fd, level, name, value, size);
}

#ifdef __GLIBC__
using IoctlRequest = unsigned long;
#else
using IoctlRequest = int;
#endif

extern "C" int ioctl(int fd, IoctlRequest request, ...) noexcept {
  va_list args;
  va_start(args, request);
  void* const argument = va_arg(args, void*);
  va_end(args);
  if (faked == nullptr || !faked->ioctl) {
    static auto* const function = test::next_function<int(int, IoctlRequest, ...)>(kIoctl);
    return function(fd, request, argument);
  }
  return faked->ioctl(fd, request, argument);
}
