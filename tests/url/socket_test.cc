// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <groundwork/url.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include "url/faked_calls.h"
#include "url/scripted_server.h"

using test::Connection;
using test::DeafServer;
using test::descriptors_return_to;
using test::FakedCalls;
using test::open_descriptors;
using test::ScriptedServer;

namespace {

constexpr char kLocal[] = "127.0.0.1";

const ScriptedServer::Script kJustClose = [](Connection&) {};

// What a call writes to standard error.
template <typename Call>
std::string standard_error_of(Call call) {
  testing::internal::CaptureStderr();
  call();
  return testing::internal::GetCapturedStderr();
}

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(OpenSocket, ConnectsAndStoresTheIPv4AddressInNetworkByteOrder) {
  ScriptedServer server([](Connection& connection) { connection.send("hello"); });
  uint32_t address = 1;
  const int fd = open_socket(kLocal, server.port(), &address);
  ASSERT_NE(fd, -1);
  EXPECT_EQ(address, htonl(INADDR_LOOPBACK));
  char text[6] = "";
  EXPECT_EQ(recv(fd, text, 5, MSG_WAITALL), 5);
  EXPECT_STREQ(text, "hello");
  close(fd);
}

TEST(OpenSocket, ResolvesAName) {
  ScriptedServer server(kJustClose);
  uint32_t address = 1;
  const int fd = open_socket("localhost", server.port(), &address);
  ASSERT_NE(fd, -1);
  EXPECT_EQ(address, htonl(INADDR_LOOPBACK));
  close(fd);
}

TEST(OpenSocket, AcceptsANullAddress) {
  ScriptedServer server(kJustClose);
  const int fd = open_socket(kLocal, server.port(), nullptr);
  ASSERT_NE(fd, -1);
  close(fd);
}

TEST(OpenSocket, TheDescriptorIsABlockingStreamSocketThatExecCloses) {
  ScriptedServer server(kJustClose);
  uint32_t address = 0;
  const int fd = open_socket(kLocal, server.port(), &address);
  ASSERT_NE(fd, -1);
  EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  int type = 0;
  socklen_t size = sizeof type;
  EXPECT_EQ(getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size), 0);
  EXPECT_EQ(type, SOCK_STREAM);
  close(fd);
}

TEST(OpenSocket, OnlyTheLowSixteenBitsOfThePortCount) {
  ScriptedServer server(kJustClose);
  for (const int32_t high : {0x10000, 0x7fff0000, -0x10000}) {
    uint32_t address = 0;
    const int fd = open_socket(kLocal, high + server.port(), &address);
    EXPECT_NE(fd, -1) << high;
    close(fd);
  }
}

TEST(OpenSocket, AHostWithOnlyAnIPv6AddressIsReachedAndStoresZero) {
  if (!test::has_ipv6_loopback()) GTEST_SKIP() << "no IPv6 loopback on this machine";
  ScriptedServer server([](Connection& connection) { connection.send("six"); }, AF_INET6);
  FakedCalls faked;
  faked.gethostbyname2 = test::with_ipv6_only_host;
  for (const char* const host : {"six.test", "::1"}) {
    uint32_t address = 1;
    const int fd = open_socket(host, server.port(), &address);
    ASSERT_NE(fd, -1) << host;
    EXPECT_EQ(address, 0u);
    char text[4] = "";
    EXPECT_EQ(recv(fd, text, 3, MSG_WAITALL), 3);
    EXPECT_STREQ(text, "six");
    close(fd);
  }
}

// Looked at on its way: the address of all zeros also leads to this machine.
TEST(OpenSocket, ConnectsToTheIPv6AddressThatWasFound) {
  unsigned char bytes[16] = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x42};
  char* addresses[] = {reinterpret_cast<char*>(bytes), nullptr};
  hostent entry{};
  entry.h_length = sizeof bytes;
  entry.h_addr_list = addresses;
  sockaddr_in6 used{};
  FakedCalls faked;
  faked.gethostbyname2 = [&](const char*, int family) {
    return family == AF_INET6 ? &entry : nullptr;
  };
  faked.socket = [](int, int type, int protocol) {
    return test::real_socket(AF_INET, type, protocol);
  };
  faked.connect = [&](int, const sockaddr* address, socklen_t length) {
    EXPECT_EQ(length, sizeof used);
    std::memcpy(&used, address, std::min<size_t>(length, sizeof used));
    errno = ECONNREFUSED;
    return -1;
  };
  EXPECT_EQ(open_socket("six.test", 8079, nullptr), -1);
  EXPECT_EQ(used.sin6_family, AF_INET6);
  EXPECT_EQ(ntohs(used.sin6_port), 8079);
  EXPECT_EQ(std::memcmp(&used.sin6_addr, bytes, sizeof bytes), 0);
}

TEST(OpenSocket, AsksForIPv6OnlyWhenThereIsNoIPv4Address) {
  ScriptedServer server(kJustClose);
  std::vector<int> families;
  FakedCalls faked;
  faked.gethostbyname2 = [&](const char* name, int family) {
    families.push_back(family);
    return test::real_gethostbyname2(name, family);
  };
  uint32_t address = 0;
  close(open_socket(kLocal, server.port(), &address));
  EXPECT_EQ(families, (std::vector<int>{AF_INET}));
  families.clear();
  EXPECT_EQ(open_socket("nosuch.invalid", server.port(), &address), -1);
  EXPECT_EQ(families, (std::vector<int>{AF_INET, AF_INET6}));
}

TEST(OpenSocket, TakesTheFirstOfSeveralAddresses) {
  ScriptedServer server(kJustClose);
  unsigned char first[4] = {127, 0, 0, 1};
  unsigned char second[4] = {127, 0, 0, 2};
  char* addresses[] = {reinterpret_cast<char*>(first), reinterpret_cast<char*>(second),
                       nullptr};
  hostent entry{};
  entry.h_length = 4;
  entry.h_addr_list = addresses;
  FakedCalls faked;
  faked.gethostbyname2 = [&](const char*, int) { return &entry; };
  uint32_t address = 0;
  close(open_socket("many.test", server.port(), &address));
  EXPECT_EQ(address, htonl(INADDR_LOOPBACK));
}

TEST(OpenSocket, AnAddressLongerThanItsFamilyOverrunsNothing) {
  ScriptedServer server(kJustClose);
  char bytes[200] = {127, 0, 0, 1};
  std::memset(bytes + 4, 'x', sizeof bytes - 4);
  char* addresses[] = {bytes, nullptr};
  hostent entry{};
  entry.h_length = sizeof bytes;
  entry.h_addr_list = addresses;
  FakedCalls faked;
  faked.gethostbyname2 = [&](const char*, int) { return &entry; };
  uint32_t address = 0;
  const int fd = open_socket("long.test", server.port(), &address);
  EXPECT_NE(fd, -1);
  EXPECT_EQ(address, htonl(INADDR_LOOPBACK));
  close(fd);
}

TEST(OpenSocket, AnUnknownHostFailsWithoutCreatingASocket) {
  FakedCalls faked;
  int created = 0;
  faked.gethostbyname2 = [](const char*, int) -> hostent* { return nullptr; };
  faked.socket = [&](int, int, int) { return ++created, -1; };
  uint32_t address = 77;
  EXPECT_EQ(standard_error_of([&] { EXPECT_EQ(open_socket("unknown", 80, &address), -1); }),
            "");
  EXPECT_EQ(created, 0);
  EXPECT_EQ(address, 77u);
}

TEST(OpenSocket, WithoutASocketFailsWithTheSystemsError) {
  FakedCalls faked;
  faked.socket = [](int, int type, int protocol) {
    EXPECT_EQ(type & 0xf, SOCK_STREAM);
    EXPECT_EQ(protocol, IPPROTO_TCP);
    errno = EMFILE;
    return -1;
  };
  uint32_t address = 0;
  EXPECT_EQ(open_socket(kLocal, 80, &address), -1);
  EXPECT_EQ(errno, EMFILE);
  EXPECT_EQ(address, htonl(INADDR_LOOPBACK));  // stored as soon as it is known
}

TEST(OpenSocket, ARefusedConnectionFailsAndIsReportedIfItShowsAfterTheWait) {
  const uint16_t port = test::unused_port();
  const int before = open_descriptors();
  uint32_t address = 0;
  const std::string printed =
      standard_error_of([&] { EXPECT_EQ(open_socket(kLocal, port, &address), -1); });
  // Under qemu the pending error keeps the host's number, 111.
  const auto message = [](int error) {
    return std::string("Connect error : ") + strerror(error) + "\n";
  };
  EXPECT_TRUE(printed.empty() || printed == message(ECONNREFUSED) ||
              printed == message(111))
      << printed;
  EXPECT_TRUE(descriptors_return_to(before));
}

TEST(OpenSocket, AFailureOfConnectItselfIsSilentAndEndsTheAttempt) {
  for (const int error : {ECONNREFUSED, ENETUNREACH, EINTR, EAGAIN}) {
    const int before = open_descriptors();
    FakedCalls faked;
    faked.connect = [&](int, const sockaddr*, socklen_t) { return errno = error, -1; };
    faked.poll = [](pollfd*, nfds_t, int) {
      ADD_FAILURE() << "waited";
      return 1;
    };
    uint32_t address = 0;
    EXPECT_EQ(standard_error_of([&] {
                EXPECT_EQ(open_socket(kLocal, 80, &address), -1);
                EXPECT_EQ(errno, error);
              }),
              "");
    EXPECT_TRUE(descriptors_return_to(before));
  }
}

TEST(OpenSocket, WaitsFiveSecondsForTheNonBlockingSocketToBecomeWritable) {
  ScriptedServer server(kJustClose);
  FakedCalls faked;
  int waits = 0;
  faked.poll = [&](pollfd* fds, nfds_t count, int timeout) {
    ++waits;
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(fds[0].events, POLLOUT);
    EXPECT_EQ(fcntl(fds[0].fd, F_GETFL) & O_NONBLOCK, O_NONBLOCK);
    EXPECT_EQ(timeout, 5000);
    return test::real_poll(fds, count, timeout);
  };
  uint32_t address = 0;
  const int fd = open_socket(kLocal, server.port(), &address);
  EXPECT_NE(fd, -1);
  EXPECT_EQ(waits, 1);
  close(fd);
}

TEST(OpenSocket, AConnectionMadeImmediatelyIsWaitedForAndCheckedLikeAnyOther) {
  ScriptedServer server(kJustClose);
  FakedCalls faked;
  int waits = 0;
  int checks = 0;
  faked.connect = [](int fd, const sockaddr* address, socklen_t length) {
    test::real_connect(fd, address, length);
    return 0;
  };
  faked.poll = [&](pollfd* fds, nfds_t count, int timeout) {
    ++waits;
    return test::real_poll(fds, count, timeout);
  };
  faked.getsockopt = [&](int, int level, int name, void* value, socklen_t* size) {
    ++checks;
    EXPECT_EQ(level, SOL_SOCKET);
    EXPECT_EQ(name, SO_ERROR);
    EXPECT_EQ(*size, sizeof(int));
    return std::memset(value, 0, sizeof(int)), 0;
  };
  uint32_t address = 0;
  const int fd = open_socket(kLocal, server.port(), &address);
  EXPECT_NE(fd, -1);
  EXPECT_EQ(waits, 1);
  EXPECT_EQ(checks, 1);
  close(fd);
}

TEST(OpenSocket, ATimeOutFailsWithoutAMessage) {
  ScriptedServer server(kJustClose);
  const int before = open_descriptors();
  {
    FakedCalls faked;
    faked.poll = [](pollfd*, nfds_t, int) { return 0; };
    uint32_t address = 0;
    EXPECT_EQ(standard_error_of(
                  [&] { EXPECT_EQ(open_socket(kLocal, server.port(), &address), -1); }),
              "");
  }
  EXPECT_TRUE(descriptors_return_to(before));
}

TEST(OpenSocket, ASignalDuringTheWaitEndsTheAttemptWithoutAMessage) {
  ScriptedServer server(kJustClose);
  const int before = open_descriptors();
  {
    FakedCalls faked;
    int waits = 0;
    faked.poll = [&](pollfd*, nfds_t, int) { return ++waits, errno = EINTR, -1; };
    uint32_t address = 0;
    EXPECT_EQ(standard_error_of([&] {
                EXPECT_EQ(open_socket(kLocal, server.port(), &address), -1);
                EXPECT_EQ(errno, EINTR);
              }),
              "");
    EXPECT_EQ(waits, 1);
  }
  EXPECT_TRUE(descriptors_return_to(before));
}

TEST(OpenSocket, APeerThatNeverRespondsIsGivenUpAfterFiveSeconds) {
  DeafServer server;
  const int before = open_descriptors();
  const auto start = std::chrono::steady_clock::now();
  uint32_t address = 0;
  EXPECT_EQ(standard_error_of(
                [&] { EXPECT_EQ(open_socket(kLocal, server.port(), &address), -1); }),
            "");
  EXPECT_GE(seconds_since(start), 4.9);
  EXPECT_LT(seconds_since(start), 60);
  EXPECT_TRUE(descriptors_return_to(before));
}

TEST(OpenSocket, ARealSignalEndsTheWaitEarly) {
  DeafServer server;
  struct sigaction act {};
  act.sa_handler = [](int) {};
  struct sigaction previous {};
  sigaction(SIGALRM, &act, &previous);
  const itimerval every_fifty_ms{{0, 50000}, {0, 50000}};
  const auto start = std::chrono::steady_clock::now();
  setitimer(ITIMER_REAL, &every_fifty_ms, nullptr);
  uint32_t address = 0;
  const int fd = open_socket(kLocal, server.port(), &address);
  const int error = errno;
  const itimerval off{};
  setitimer(ITIMER_REAL, &off, nullptr);
  sigaction(SIGALRM, &previous, nullptr);
  EXPECT_EQ(fd, -1);
  EXPECT_EQ(error, EINTR);
  EXPECT_LT(seconds_since(start), 4.5);
}

TEST(OpenSocket, AnErrorFoundAfterTheWaitIsReportedOnStandardError) {
  ScriptedServer server(kJustClose);
  const int before = open_descriptors();
  {
    FakedCalls faked;
    faked.getsockopt = [](int fd, int, int, void* value, socklen_t*) {
      EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0) << "asked before it blocks again";
      const int pending = EHOSTUNREACH;
      return std::memcpy(value, &pending, sizeof pending), 0;
    };
    uint32_t address = 0;
    EXPECT_EQ(standard_error_of(
                  [&] { EXPECT_EQ(open_socket(kLocal, server.port(), &address), -1); }),
              std::string("Connect error : ") + strerror(EHOSTUNREACH) + "\n");
  }
  EXPECT_TRUE(descriptors_return_to(before));
}

TEST(OpenSocket, ASocketThatCannotBeQueriedIsReportedOnStandardError) {
  ScriptedServer server(kJustClose);
  const int before = open_descriptors();
  {
    FakedCalls faked;
    faked.getsockopt = [](int, int, int, void*, socklen_t*) { return errno = ENOBUFS, -1; };
    uint32_t address = 0;
    EXPECT_EQ(standard_error_of([&] {
                EXPECT_EQ(open_socket(kLocal, server.port(), &address), -1);
                EXPECT_EQ(errno, ENOBUFS);
              }),
              std::string("getsockopt failed : ") + strerror(ENOBUFS) + "\n");
  }
  EXPECT_TRUE(descriptors_return_to(before));
}

TEST(OpenSocket, ASocketThatCannotBeMadeBlockingAgainIsRefused) {
  ScriptedServer server(kJustClose);
  const int descriptors = open_descriptors();
  {
    FakedCalls faked;
    faked.ioctl = [](int, unsigned long, void*) { return errno = EIO, -1; };
    EXPECT_EQ(open_socket(kLocal, server.port(), nullptr), -1);
    EXPECT_EQ(errno, EIO);
  }
  EXPECT_TRUE(descriptors_return_to(descriptors));
}

TEST(OpenSocket, BothMessagesComeWhenBothChecksFail) {
  ScriptedServer server(kJustClose);
  FakedCalls faked;
  faked.getsockopt = [](int, int, int, void* value, socklen_t*) {
    const int pending = 1;
    std::memcpy(value, &pending, sizeof pending);
    return errno = ENOBUFS, -1;
  };
  uint32_t address = 0;
  EXPECT_EQ(standard_error_of(
                [&] { EXPECT_EQ(open_socket(kLocal, server.port(), &address), -1); }),
            std::string("getsockopt failed : ") + strerror(ENOBUFS) +
                "\nConnect error : " + strerror(1) + "\n");
}

TEST(OpenSocket, WorksWithADescriptorAbove1023) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit previous = limit;
  if (limit.rlim_cur < 1100) {
    if (limit.rlim_max < 1100)
      GTEST_SKIP() << "at most " << limit.rlim_max << " descriptors";
    limit.rlim_cur = 1100;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  ScriptedServer server([](Connection& connection) { connection.send("far"); });
  std::vector<int> fillers;
  for (int fd = 0; fd != -1 && fd < 1023;) {
    fd = fcntl(0, F_DUPFD_CLOEXEC, 3);
    if (fd == -1) fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (fd != -1) fillers.push_back(fd);
  }
  uint32_t address = 0;
  const int fd = open_socket(kLocal, server.port(), &address);
  for (const int filler : fillers) close(filler);
  EXPECT_GT(fd, 1023);
  char text[4] = "";
  EXPECT_EQ(recv(fd, text, 3, MSG_WAITALL), 3);
  close(fd);
  setrlimit(RLIMIT_NOFILE, &previous);
}

// --- The wrappers.

// Both ends of a connection.
class SocketWrappers : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends_), 0); }
  void TearDown() override {
    for (const int fd : ends_) {
      if (fd != -1) close(fd);
    }
  }
  void close_end(int end) {
    close(ends_[end]);
    ends_[end] = -1;
  }
  // Hands the first end over to a stream.
  FILE* stream(const char* mode) {
    FILE* const opened = socket_fdopen(ends_[0], mode);
    EXPECT_NE(opened, nullptr);
    ends_[0] = -1;
    return opened;
  }
  int ends_[2] = {-1, -1};
};

TEST_F(SocketWrappers, WriteReturnsTheBytesWritten) {
  EXPECT_EQ(socket_write(ends_[0], "abc\0d", 5), 5);
  EXPECT_EQ(socket_write(ends_[0], "abc", 0), 0);
  char text[6] = "";
  EXPECT_EQ(recv(ends_[1], text, sizeof text, 0), 5);
  EXPECT_EQ(std::memcmp(text, "abc\0d", 5), 0);
}

TEST_F(SocketWrappers, WriteToAPeerThatIsGoneFailsAndRaisesNoSignal) {
  close_end(1);
  struct sigaction previous {};
  struct sigaction fatal {};
  fatal.sa_handler = SIG_DFL;
  sigaction(SIGPIPE, &fatal, &previous);
  errno = 0;
  EXPECT_EQ(socket_write(ends_[0], "abc", 3), -1);
  EXPECT_EQ(errno, EPIPE);
  sigaction(SIGPIPE, &previous, nullptr);
}

TEST(SocketWrite, ServesADescriptorThatIsNoSocket) {
  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  ASSERT_EQ(socket_write(pipe_ends[1], "abc", 3), 3);
  char text[4] = "";
  EXPECT_EQ(read(pipe_ends[0], text, 3), 3);
  EXPECT_STREQ(text, "abc");
  close(pipe_ends[0]);
  close(pipe_ends[1]);
}

TEST(SocketWrite, OnAClosedDescriptorFailsWithTheSystemsError) {
  EXPECT_EQ(socket_write(-1, "abc", 3), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(SocketWrappers, ShutdownOfTheSendingSideIsTheEndForThePeer) {
  EXPECT_EQ(socket_shutdown(ends_[0], 1), 0);
  char byte = 0;
  EXPECT_EQ(recv(ends_[1], &byte, 1, 0), 0);
  EXPECT_EQ(send(ends_[1], "x", 1, 0), 1);
  EXPECT_EQ(recv(ends_[0], &byte, 1, 0), 1) << "the other direction stays open";
  EXPECT_EQ(socket_shutdown(-1, 1), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(SocketWrappers, FdopenFailsWithTheSystemsErrorAndLeavesTheDescriptor) {
  EXPECT_EQ(socket_fdopen(ends_[0], "nonsense"), nullptr);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_NE(fcntl(ends_[0], F_GETFD), -1);
}

TEST_F(SocketWrappers, ReadLinesBytesAndBlocks) {
  const std::string sent =
      "line\nAB\xff"
      "block";
  EXPECT_EQ(socket_write(ends_[1], sent.data(), static_cast<int64_t>(sent.size())), 13);
  close_end(1);
  FILE* const in = stream("rb");
  char text[16] = "";
  EXPECT_EQ(socket_fgets(text, sizeof text, in), text);
  EXPECT_STREQ(text, "line\n");
  EXPECT_EQ(socket_fgets(text, 3, in), text);
  EXPECT_STREQ(text, "AB");
  EXPECT_EQ(socket_fgetc(in), 255);
  std::memset(text, 0, sizeof text);
  EXPECT_EQ(socket_fread(text, 10, in), 5);
  EXPECT_STREQ(text, "block");
  EXPECT_EQ(socket_fgetc(in), EOF);
  EXPECT_EQ(socket_fgets(text, sizeof text, in), nullptr);
  EXPECT_EQ(socket_fread(text, 1, in), 0);
  EXPECT_EQ(socket_fclose(in), 0);
}

TEST_F(SocketWrappers, WritesLeaveWithFflushAndCloseClosesTheDescriptor) {
  FILE* const out = stream("wb");
  EXPECT_EQ(socket_fwrite("buffered", 8, out), 8);
  char text[16] = "";
  EXPECT_EQ(recv(ends_[1], text, sizeof text, MSG_DONTWAIT), -1);
  EXPECT_EQ(socket_fflush(out), 0);
  EXPECT_EQ(recv(ends_[1], text, sizeof text, 0), 8);
  EXPECT_STREQ(text, "buffered");
  const int fd = fileno(out);
  EXPECT_EQ(socket_fclose(out), 0);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(recv(ends_[1], text, sizeof text, 0), 0);
}

TEST(SocketFflush, ReportsAFailedWrite) {
  FILE* const full = fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  EXPECT_EQ(socket_fwrite("x", 1, full), 1);
  EXPECT_EQ(socket_fflush(full), EOF);
  socket_fclose(full);
}

}  // namespace
