// A signal without SA_RESTART arrives while a stream or a socket waits.
//
// SPDX-License-Identifier: MIT

#include <groundwork/url.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/interruptions.h"
#include "support/temporary_directory.h"
#include "url/faked_calls.h"
#include "url/scripted_server.h"

using test::Connection;
using test::DeafServer;
using test::Interruptions;
using test::SilentServer;
using test::TemporaryDirectory;

namespace {

// A stream on a named pipe that has one writer.
class InterruptedFile : public testing::Test {
 protected:
  InterruptedFile() : path(dir / "pipe") {
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    end = open(path.c_str(), O_RDWR | O_CLOEXEC);
    url = url_file_open(path.c_str());
  }
  ~InterruptedFile() override {
    url_close(url);
    close(end);
  }
  void put(const std::string& text) const {
    EXPECT_EQ(write(end, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  TemporaryDirectory dir;
  std::string path;
  int end;
  URL url;
  char buffer[64] = "old old old";
};

TEST_F(InterruptedFile, OpeningFails) {
  const std::string other = dir / "other";
  ASSERT_EQ(mkfifo(other.c_str(), 0600), 0);
  const Interruptions signals;
  EXPECT_EQ(url_file_open(other.c_str()), nullptr);
  EXPECT_EQ(url_errno, EINTR);
}

TEST_F(InterruptedFile, AReadFailsAndReadsNothing) {
  const Interruptions signals;
  EXPECT_EQ(url_read(url, buffer, sizeof buffer), -1);
  EXPECT_EQ(url_errno, EINTR);
  EXPECT_EQ(url->nread, 0u);
}

TEST_F(InterruptedFile, ASafeReadGoesOn) {
  const Interruptions signals(3, [this] { put("text"); });
  EXPECT_EQ(url_safe_read(url, buffer, sizeof buffer), 4);
  EXPECT_EQ(std::string(buffer, 4), "text");
}

TEST_F(InterruptedFile, AReadOfACertainSizeGoesOn) {
  put("te");
  const Interruptions signals(3, [this] { put("xt"); });
  EXPECT_EQ(url_nread(url, buffer, 4), 4);
  EXPECT_EQ(std::string(buffer, 4), "text");
}

TEST_F(InterruptedFile, AByteIsNone) {
  const Interruptions signals;
  EXPECT_EQ(url_fgetc(url), -1);
}

// Kept: a failed read counts as a byte, the one that the buffer held.
TEST_F(InterruptedFile, ALineGetsAnOldByte) {
  put("ab");
  const Interruptions signals(1, [this] { put("c\n"); });
  EXPECT_EQ(url_gets(url, buffer, sizeof buffer), buffer);
  EXPECT_STREQ(buffer, "abdc\n");
}

TEST_F(InterruptedFile, AStrippedLineEnds) {
  put("ab");
  const Interruptions signals;
  EXPECT_EQ(url_readline(url, buffer, sizeof buffer), 2);
  EXPECT_STREQ(buffer, "ab");
}

TEST(InterruptedConnection, OpeningASocketFails) {
  const DeafServer server;
  const int before = test::open_descriptors();
  {
    const Interruptions signals;
    EXPECT_EQ(open_socket("127.0.0.1", server.port(), nullptr), -1);
    EXPECT_EQ(errno, EINTR);
  }
  EXPECT_TRUE(test::descriptors_return_to(before));
}

TEST(InterruptedConnection, WritingToASocketFails) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const std::string much(100000, 'x');
  while (send(ends[0], much.data(), much.size(), MSG_DONTWAIT) > 0) continue;
  {
    const Interruptions signals;
    EXPECT_EQ(socket_write(ends[0], "a", 1), -1);
    EXPECT_EQ(errno, EINTR);
  }
  close(ends[0]);
  close(ends[1]);
}

// At each place before the body, so that the rest of the headers is never read as the body.
TEST(InterruptedHttp, OpeningFailsWithinStatusAndHeaders) {
  for (const char* const said :
       {"", "HTTP/1.0 2", "HTTP/1.0 200 OK\r\n", "HTTP/1.0 200 OK\r\nContent-Le",
        "HTTP/1.0 200 OK\r\nContent-Length: 5\r\n",
        "HTTP/1.0 200 OK\r\nContent-Length: 5\r\nX: y\r\n"}) {
    const int before = test::open_descriptors();
    {
      SilentServer server(said);
      const Interruptions signals;
      EXPECT_EQ(url_http_open(server.url().c_str()), nullptr) << said;
      EXPECT_EQ(errno, EINTR) << said;
      EXPECT_EQ(url_errno, EINTR) << said;
    }
    EXPECT_TRUE(test::descriptors_return_to(before)) << said;
  }
}

class InterruptedBody : public testing::Test {
 protected:
  InterruptedBody()
      : server("HTTP/1.0 200 OK\r\n\r\nbo"), url(url_http_open(server.url().c_str())) {}
  ~InterruptedBody() override { url_close(url); }

  SilentServer server;
  URL url;
  char buffer[10000] = "";
};

TEST_F(InterruptedBody, AReadReturnsWhatHadCome) {
  const Interruptions signals;
  EXPECT_EQ(url_read(url, buffer, 100), 2);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(url_errno, URLERR_NONE);
}

TEST_F(InterruptedBody, ALargeReadReturnsWhatHadCome) {
  const Interruptions signals;
  EXPECT_EQ(url_read(url, buffer, sizeof buffer), 2);
  EXPECT_EQ(errno, EINTR);
}

TEST_F(InterruptedBody, ALineIsNone) {
  const Interruptions signals;
  EXPECT_EQ(url_gets(url, buffer, sizeof buffer), nullptr);
  EXPECT_EQ(errno, EINTR);
}

TEST_F(InterruptedBody, AByteIsNone) {
  EXPECT_EQ(url_fgetc(url), 'b');
  EXPECT_EQ(url_fgetc(url), 'o');
  const Interruptions signals;
  EXPECT_EQ(url_fgetc(url), -1);
  EXPECT_EQ(url_errno, EINTR);
}

}  // namespace
