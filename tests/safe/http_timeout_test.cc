// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <groundwork/url.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "support/allocation_faults.h"
#include "support/interruptions.h"
#include "url/faked_calls.h"
#include "url/scripted_server.h"

using test::Connection;
using test::DeafServer;
using test::FakedCalls;
using test::Interruptions;
using test::ScriptedServer;
using test::SilentServer;

namespace {

constexpr int kShort = 300;       // runs out in these tests
constexpr int kLong = 60 * 1000;  // never does

const std::string kOk = "HTTP/1.0 200 OK\r\n\r\n";

class HttpTimeout : public testing::Test {
 protected:
  HttpTimeout() { url_http_set_timeout(0); }
  ~HttpTimeout() override { url_http_set_timeout(0); }
};

void pause_ms(int ms) {
  usleep(static_cast<useconds_t>(ms) * 1000);
}

URL open_limited(const std::string& url, int limit) {
  url_http_set_timeout(limit);
  errno = 0;
  url_errno = 0;
  const URL stream = url_http_open(url.c_str());
  const int error = errno;
  url_http_set_timeout(0);
  errno = error;
  return stream;
}

void expect_timed_out() {
  EXPECT_EQ(errno, ETIMEDOUT);
  EXPECT_EQ(url_errno, ETIMEDOUT);
}

TEST_F(HttpTimeout, ThePreviousLimitIsReturned) {
  EXPECT_EQ(url_http_set_timeout(500), 0);
  EXPECT_EQ(url_http_set_timeout(INT_MAX), 500);
  EXPECT_EQ(url_http_set_timeout(-5), INT_MAX);
  EXPECT_EQ(url_http_set_timeout(7), 0);
  EXPECT_EQ(url_http_set_timeout(0), 7);
}

TEST_F(HttpTimeout, OpeningFailsWhereTheReplyIsIncomplete) {
  for (const char* const said : {"", "HTTP/1.0", "HTTP/1.0 200 OK\r\n",
                                 "HTTP/1.0 200 OK\r\nContent-Length: 5\r\nX"}) {
    const int before = test::open_descriptors();
    {
      SilentServer server(said);
      const int64_t start = g_monotonic_ms();
      EXPECT_EQ(open_limited(server.url(), kShort), nullptr) << said;
      expect_timed_out();
      EXPECT_GE(g_monotonic_ms() - start, kShort - 1);
    }
    EXPECT_TRUE(test::descriptors_return_to(before));
  }
}

TEST_F(HttpTimeout, FromAnOffsetTheSameHolds) {
  ScriptedServer server([](Connection& connection) {
    connection.read_request();
    connection.send("HTTP/1.1 206 OK\r\n");
    pause_ms(5 * kShort);  // the client has closed its sending side long ago
  });
  url_http_set_timeout(kShort);
  EXPECT_EQ(url_http_open_with_offset(server.url().c_str(), 3), nullptr);
  expect_timed_out();
}

// Each byte comes in time, but all of them do not.
TEST_F(HttpTimeout, HeadersThatTrickleInForEverAreCutOff) {
  ScriptedServer server([](Connection& connection) {
    connection.read_request();
    connection.send("HTTP/1.0 200 OK\r\nX: ");
    for (int i = 0; i < 150 && fcntl(connection.fd(), F_GETFD) != -1; ++i) {
      connection.send("x");
      pause_ms(10);
    }
  });
  EXPECT_EQ(open_limited(server.url(), kShort), nullptr);
  expect_timed_out();
  EXPECT_EQ(server.connections(), 1u);
}

// There is something to be read whenever the library looks.
TEST_F(HttpTimeout, HeadersThatFloodInForEverAreCutOff) {
  ScriptedServer server([](Connection& connection) {
    connection.read_request();
    connection.send("HTTP/1.0 200 OK\r\n");
    std::string lines;
    for (int i = 0; i < 5000; ++i) lines += "X: yyyyyyyyyyyyyyy\r\n";
    const int64_t start = g_monotonic_ms();
    while (g_monotonic_ms() - start < 5000) {
      if (send(connection.fd(), lines.data(), lines.size(), MSG_NOSIGNAL) <= 0) break;
    }
  });
  FakedCalls calls;
  calls.poll = [](pollfd* fds, nfds_t count, int) {
    return test::real_poll(fds, count, 10000);
  };
  EXPECT_EQ(open_limited(server.url(), kShort), nullptr);
  expect_timed_out();
}

TEST_F(HttpTimeout, AReadReturnsWhatHadComeAndTheStreamStaysFailed) {
  ScriptedServer server([](Connection& connection) {
    connection.read_request();
    connection.send(kOk + "abc");
    pause_ms(3 * kShort);
    connection.send("too late");
    connection.read_to_end();
  });
  const URL url = open_limited(server.url(), kShort);
  ASSERT_NE(url, nullptr);
  char buffer[20] = "";
  EXPECT_EQ(url_read(url, buffer, 10), 3);
  expect_timed_out();
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(url->nread, 3u);
  pause_ms(4 * kShort);  // by now there would be more
  EXPECT_EQ(url_read(url, buffer, 10), 0);
  expect_timed_out();
  EXPECT_EQ(url_safe_read(url, buffer, 10), 0);
  expect_timed_out();
  EXPECT_EQ(url_gets(url, buffer, 10), nullptr);
  expect_timed_out();
  EXPECT_EQ(url_fgetc(url), -1);
  expect_timed_out();
  EXPECT_EQ(url_readline(url, buffer, 10), 0);
  expect_timed_out();
  EXPECT_EQ(url_nread(url, buffer, 10), 0);
  url_close(url);
}

TEST_F(HttpTimeout, EachKindOfReadEndsInTime) {
  SilentServer server(kOk + "line\npart");
  char buffer[20000];
  URL url = open_limited(server.url(), kShort);
  ASSERT_NE(url, nullptr);
  EXPECT_STREQ(url_gets(url, buffer, sizeof buffer), "line\n");
  EXPECT_EQ(url_gets(url, buffer, sizeof buffer), nullptr);
  expect_timed_out();
  url_close(url);

  url = open_limited(server.url(), kShort);
  ASSERT_NE(url, nullptr);
  for (const char c : std::string("line\npart")) EXPECT_EQ(url_fgetc(url), c);
  EXPECT_EQ(url_fgetc(url), -1);
  expect_timed_out();
  url_close(url);

  url = open_limited(server.url(), kShort);
  ASSERT_NE(url, nullptr);
  EXPECT_EQ(url_nread(url, buffer, sizeof buffer), 9);  // past the buffer
  expect_timed_out();
  url_close(url);

  url = open_limited(server.url(), kShort);
  ASSERT_NE(url, nullptr);
  EXPECT_EQ(url_readline(url, buffer, sizeof buffer), 4);
  EXPECT_EQ(url_readline(url, buffer, sizeof buffer), 4);
  EXPECT_STREQ(buffer, "part");
  expect_timed_out();
  url_close(url);
}

// A line of one byte is the shortest that is read.
TEST_F(HttpTimeout, AOneByteLineEndsInTime) {
  SilentServer server(kOk + "ab");
  const URL url = open_limited(server.url(), kShort);
  ASSERT_NE(url, nullptr);
  char buffer[2];
  EXPECT_STREQ(url_gets(url, buffer, sizeof buffer), "a");
  EXPECT_STREQ(url_gets(url, buffer, sizeof buffer), "b");
  EXPECT_EQ(url_gets(url, buffer, sizeof buffer), nullptr);
  expect_timed_out();
  url_close(url);
}

// The limit is for each wait, not for the body.
TEST_F(HttpTimeout, ABodyMayTakeLongerThanTheLimit) {
  ScriptedServer server([](Connection& connection) {
    connection.read_request();
    connection.send(kOk);
    for (int i = 0; i < 30; ++i) {
      pause_ms(100);
      connection.send(std::string(1, static_cast<char>('a' + i % 26)));
    }
  });
  const URL url = open_limited(server.url(), 2000);
  ASSERT_NE(url, nullptr);
  char buffer[100] = "";
  EXPECT_EQ(url_read(url, buffer, sizeof buffer), 30);
  EXPECT_EQ(std::string(buffer, 30), "abcdefghijklmnopqrstuvwxyzabcd");
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(url_read(url, buffer, sizeof buffer), 0);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(url_errno, URLERR_NONE);
  url_close(url);
}

TEST_F(HttpTimeout, TheConnectionIsMadeWithinIt) {
  DeafServer server;
  const std::string url = "http://127.0.0.1:" + std::to_string(server.port()) + "/";
  const int64_t start = g_monotonic_ms();
  EXPECT_EQ(open_limited(url, kShort), nullptr);
  expect_timed_out();
  EXPECT_GE(g_monotonic_ms() - start, kShort - 1);
}

// How long the wait for a connection may be, in each case, and how much of the limit had
// passed by then, on a slow machine.
struct Wait {
  int allowed;
  int passed;
};

Wait wait_for_connection(int limit, bool by_itself) {
  ScriptedServer server(kOk);
  FakedCalls calls;
  std::vector<Wait> waits;
  int64_t start = 0;
  calls.poll = [&](pollfd* fds, nfds_t count, int timeout) {
    waits.push_back({timeout, static_cast<int>(g_monotonic_ms() - start)});
    return test::real_poll(fds, count, timeout);
  };
  url_http_set_timeout(limit);
  const std::string url = server.url();
  start = g_monotonic_ms();
  if (by_itself) {
    close(open_socket("127.0.0.1", server.port(), nullptr));
  } else {
    url_close(url_http_open(url.c_str()));
  }
  return waits.at(0);
}

void expect_wait(const Wait& wait, int limit) {
  EXPECT_LE(wait.allowed, limit);
  EXPECT_GE(wait.allowed, limit - wait.passed);
}

TEST_F(HttpTimeout, TheConnectionStillHasFiveSecondsAtMost) {
  expect_wait(wait_for_connection(kLong, false), 5000);
  expect_wait(wait_for_connection(INT_MAX, false), 5000);
  EXPECT_EQ(wait_for_connection(0, false).allowed, 5000);
  expect_wait(wait_for_connection(kShort, false), kShort);
}

TEST_F(HttpTimeout, ASocketByItselfKeepsItsFiveSeconds) {
  EXPECT_EQ(wait_for_connection(kShort, true).allowed, 5000);
}

TEST_F(HttpTimeout, StreamsKeepTheLimitThatTheyWereOpenedWith) {
  const auto late = [](Connection& connection) {
    connection.read_request();
    connection.send(kOk);
    pause_ms(2 * kShort);
    connection.send("late");
  };
  ScriptedServer server(late);
  URL url = open_limited(server.url(), 0);
  ASSERT_NE(url, nullptr);
  url_http_set_timeout(1);
  char buffer[10] = "";
  EXPECT_EQ(url_read(url, buffer, 4), 4);
  url_close(url);

  SilentServer silent(kOk);
  url = open_limited(silent.url(), kShort);  // which lifts the limit afterwards
  ASSERT_NE(url, nullptr);
  EXPECT_EQ(url_read(url, buffer, 4), 0);
  expect_timed_out();
  url_close(url);
}

TEST_F(HttpTimeout, AnInterruptedWaitGoesOn) {
  ScriptedServer server([](Connection& connection) {
    connection.read_request();
    pause_ms(kShort);
    connection.send("HTTP/1.0 200 OK\r\n");
    pause_ms(kShort);
    connection.send("\r\nab");
    pause_ms(kShort);
    connection.send("cd\n");
    pause_ms(kShort);
  });
  const Interruptions signals;
  const URL url = open_limited(server.url(), kLong);
  ASSERT_NE(url, nullptr);
  char buffer[10] = "";
  EXPECT_EQ(url_read(url, buffer, 4), 4);
  EXPECT_STREQ(buffer, "abcd");
  EXPECT_EQ(errno, 0);
  EXPECT_STREQ(url_gets(url, buffer, sizeof buffer), "\n");
  EXPECT_EQ(url_fgetc(url), -1);  // the end, which comes late, too
  EXPECT_EQ(errno, 0);
  url_close(url);
}

TEST_F(HttpTimeout, AnInterruptedWaitEndsWithTheRestOfTheTime) {
  SilentServer server(kOk);
  const URL url = open_limited(server.url(), kShort);
  ASSERT_NE(url, nullptr);
  char buffer[10000];
  const int64_t start = g_monotonic_ms();
  {
    const Interruptions signals(100000);
    EXPECT_EQ(url_read(url, buffer, sizeof buffer), 0);
    expect_timed_out();
  }
  EXPECT_GE(g_monotonic_ms() - start, kShort - 2);
  url_close(url);
  DeafServer deaf;
  const Interruptions signals(100000);
  EXPECT_EQ(open_limited("http://127.0.0.1:" + std::to_string(deaf.port()), kShort),
            nullptr);
  expect_timed_out();
}

// --- With time enough all is as without a limit.

std::string body_by(URL url, int size) {
  std::string body;
  std::vector<char> buffer(static_cast<size_t>(size));
  for (int32_t count; (count = url_read(url, buffer.data(), size)) > 0;) {
    body.append(buffer.data(), static_cast<size_t>(count));
  }
  return body;
}

TEST_F(HttpTimeout, ABodyIsReadAsWithoutIt) {
  std::string body;
  for (int i = 0; body.size() < 100000; ++i) body += "line " + std::to_string(i) + "\n";
  body[500] = '\0';
  const std::string reply = "HTTP/1.0 200 OK\r\nX: " + std::string(20000, 'x') +
                            "\r\nContent-Length: " + std::to_string(body.size()) +
                            "\r\n\r\n" + body + "more";
  ScriptedServer server(reply);
  ScriptedServer other(reply);
  for (const int size : {1, 10, 4095, 4096, 4097, 8192, 200000}) {
    const URL url = open_limited(server.url(), kLong);
    ASSERT_NE(url, nullptr);
    EXPECT_EQ(url->readlimit, body.size());
    EXPECT_TRUE(body_by(url, size) == body) << size;
    url_close(url);
  }
  for (const int size : {2, 3, 10, 5000}) {
    const URL plain = open_limited(other.url(), 0);
    const URL url = open_limited(server.url(), kLong);
    char expected[5000];
    char line[5000];
    for (int i = 0; i < 3000; ++i) {
      const bool is_line = url_gets(plain, expected, size) != nullptr;
      ASSERT_EQ(url_gets(url, line, size) != nullptr, is_line) << i;
      if (!is_line) break;
      ASSERT_STREQ(line, expected);
      ASSERT_EQ(url_fgetc(url), url_fgetc(plain));
      ASSERT_EQ(url->nread, plain->nread);
    }
    url_close(plain);
    url_close(url);
  }
}

TEST_F(HttpTimeout, ABodyComesFromWhateverStreamAProgramPutThere) {
  ScriptedServer server(kOk);
  std::string text = std::string(9000, 'x') + "\nlast";
  for (const int limit : {0, kShort}) {
    FILE* const file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    ASSERT_EQ(std::fwrite(text.data(), 1, text.size(), file), text.size());
    std::rewind(file);
    FILE* const memory = fmemopen(text.data(), text.size(), "r");  // has no descriptor
    for (FILE* const other : {file, memory}) {
      const URL url = open_limited(server.url(), limit);
      ASSERT_NE(url, nullptr);
      std::fclose(std::exchange(reinterpret_cast<URL_http*>(url)->stream, other));
      char buffer[16384];
      errno = 0;
      ASSERT_EQ(url_read(url, buffer, 9000), 9000);
      EXPECT_EQ(std::string(buffer, 9000), text.substr(0, 9000));
      EXPECT_STREQ(url_gets(url, buffer, sizeof buffer), "\n");
      EXPECT_EQ(url_fgetc(url), 'l');
      EXPECT_EQ(errno, 0);
      url_close(url);
    }
  }
}

// Reads "ab\n", each byte after an interruption.
struct InterruptedBytes {
  const char* next = "ab\n";
  bool is_interrupted = false;

  static ssize_t read(void* bytes, char* buf, size_t) {
    auto& self = *static_cast<InterruptedBytes*>(bytes);
    self.is_interrupted = !self.is_interrupted;
    if (self.is_interrupted) {
      errno = EINTR;
      return -1;
    }
    if (*self.next == '\0') return 0;
    *buf = *self.next++;
    return 1;
  }
};

TEST_F(HttpTimeout, AnInterruptedReadOfAProgramsStreamGoesOn) {
  ScriptedServer server(kOk);
  const URL url = open_limited(server.url(), kLong);
  ASSERT_NE(url, nullptr);
  InterruptedBytes bytes;
  FILE* const other = fopencookie(&bytes, "r", {InterruptedBytes::read, {}, {}, {}});
  ASSERT_NE(other, nullptr);
  std::fclose(std::exchange(reinterpret_cast<URL_http*>(url)->stream, other));
  errno = 0;
  EXPECT_EQ(url_fgetc(url), 'a');
  char buffer[10] = "";
  EXPECT_STREQ(url_gets(url, buffer, sizeof buffer), "b\n");
  EXPECT_EQ(url_fgetc(url), -1);
  EXPECT_EQ(errno, 0);
  url_close(url);
}

TEST_F(HttpTimeout, FailuresHaveTheirOwnReasons) {
  ScriptedServer closes("");
  EXPECT_EQ(open_limited(closes.url(), kLong), nullptr);
  EXPECT_EQ(url_errno, URLERR_CANT_OPEN);
  ScriptedServer missing("HTTP/1.0 404 Not Found\r\n\r\n");
  EXPECT_EQ(open_limited(missing.url(), kLong), nullptr);
  EXPECT_EQ(url_errno, URLERR_HTTP_NOT_FOUND);
  ScriptedServer resets([](Connection& connection) {
    connection.read_request();
    connection.send("HTTP/1.0 200 OK\r\n");
    connection.reset();
  });
  EXPECT_EQ(open_limited(resets.url(), kLong), nullptr);
  EXPECT_EQ(url_errno, ECONNRESET);
  ScriptedServer ends("HTTP/1.0 200 OK\r\nX: y");
  const URL url = open_limited(ends.url(), kLong);
  ASSERT_NE(url, nullptr);
  EXPECT_EQ(url_fgetc(url), -1);
  EXPECT_EQ(errno, 0);
  url_close(url);
}

TEST_F(HttpTimeout, AResetOfTheBodyIsNoTimeOut) {
  for (const int size : {10, 10000}) {
    ScriptedServer server([](Connection& connection) {
      connection.read_request();
      connection.send(kOk + "ab");
      connection.reset();
    });
    const URL url = open_limited(server.url(), kLong);
    ASSERT_NE(url, nullptr);
    char buffer[10000];
    EXPECT_EQ(url_read(url, buffer, size), 2);
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(url_errno, URLERR_NONE);
    url_close(url);
  }
}

TEST_F(HttpTimeout, TheSocketIsUnderTheStreamAsAlways) {
  ScriptedServer server(kOk + "body");
  const URL url = open_limited(server.url(), kLong);
  ASSERT_NE(url, nullptr);
  testing::internal::CaptureStdout();
  const int fd = url_internal_sock(url);
  testing::internal::GetCapturedStdout();
  EXPECT_GT(fd, 2);
  EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(url->type, URL_HTTP);
  url_close(url);
}

}  // namespace
