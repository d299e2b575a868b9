// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <groundwork/url.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/allocation_faults.h"
#include "support/ended_thread.h"
#include "url/faked_calls.h"
#include "url/scripted_server.h"

using test::AllocationFaults;
using test::Connection;
using test::descriptors_return_to;
using test::FakedCalls;
using test::open_descriptors;
using test::ScriptedServer;

namespace {

constexpr uint32_t kUnlimited = 0x7fffffff;
const std::string kOk = "HTTP/1.0 200 OK\r\n\r\n";

// Gives every test the settings of a fresh process.
class Http : public testing::Test {
 protected:
  void SetUp() override { reset(); }
  void TearDown() override { reset(); }

 private:
  static void reset() {
    url_http_proxy_host = nullptr;
    url_http_proxy_port = 0;
    url_user_agent = nullptr;
    url_errno = 0;
  }
};

class HttpRequest : public Http {};
class HttpProxy : public Http {};
class HttpStatus : public Http {};
class HttpLength : public Http {};
class HttpHeaders : public Http {};
class HttpBody : public Http {};
class HttpFailure : public Http {};

// What a server receives for a URL with this after its host and port. The reply is sent at
// the empty line, so the record also has whatever comes later.
std::string request_for(const std::string& path) {
  ScriptedServer server(kOk);
  const URL url = url_http_open(server.url(path).c_str());
  EXPECT_NE(url, nullptr) << path;
  url_close(url);
  return server.request();
}

std::string request_from(const std::string& path, int64_t offset) {
  ScriptedServer server([](Connection& connection) {
    connection.read_to_end();
    connection.send(kOk);
  });
  const URL url = url_http_open_with_offset(server.url(path).c_str(), offset);
  EXPECT_NE(url, nullptr) << path;
  url_close(url);
  return server.request();
}

// The body to its end, or to the limit.
std::string body_of(URL url) {
  std::string body;
  char buffer[1000];
  int32_t n = 0;
  while ((n = url_read(url, buffer, sizeof buffer)) > 0) {
    body.append(buffer, static_cast<size_t>(n));
  }
  EXPECT_EQ(n, 0);
  return body;
}

// Opens a stream on a server that gives this reply.
struct Reply {
  explicit Reply(const std::string& text) : server(text) {
    errno = 0;
    url_errno = 0;
    url = url_http_open(server.url().c_str());
    error = errno;
  }
  ~Reply() {
    if (url != nullptr) url_close(url);
  }
  uint32_t limit() const { return url == nullptr ? 0 : url->readlimit; }

  ScriptedServer server;
  URL url;
  int error;
};

std::string repeated(size_t count, char byte) {
  return std::string(count, byte);
}

// --- The module and its record.

TEST_F(Http, TheModuleIsType2WithoutInitialisation) {
  EXPECT_EQ(URL_module_http.type, 2);
  EXPECT_EQ(URL_module_http.open, url_http_open);
  ASSERT_NE(URL_module_http.name_check, nullptr);
}

TEST_F(Http, TheSettingsAreUnsetAtStart) {
  // SetUp() wrote the same values: the types are what is checked here.
  const char** const agent = &url_user_agent;
  const char** const host = &url_http_proxy_host;
  uint16_t* const port = &url_http_proxy_port;
  EXPECT_EQ(*agent, nullptr);
  EXPECT_EQ(*host, nullptr);
  EXPECT_EQ(*port, 0);
}

TEST_F(Http, TheNameCheckTakesExactlyTheLowerCaseScheme) {
  const auto takes = [](const char* url) { return URL_module_http.name_check(url) != 0; };
  EXPECT_TRUE(takes("http://"));
  EXPECT_TRUE(takes("http://host/x"));
  EXPECT_TRUE(takes("http:///"));
  for (const char* const other : {"", "h", "http:/", "http:/x/", "HTTP://host/", "Http://h",
                                  " http://h", "https://h", "file:http://h", "ttp://h"}) {
    EXPECT_FALSE(takes(other)) << other;
  }
}

TEST_F(Http, UrlOpenFindsTheModule) {
  url_add_module(&URL_module_http);
  EXPECT_EQ(url_check_type("http://host/"), 2);
  EXPECT_EQ(url_check_type("HTTP://host/"), -1);
  ScriptedServer server(kOk + "body");
  const URL url = url_open(server.url().c_str());
  ASSERT_NE(url, nullptr);
  EXPECT_EQ(body_of(url), "body");
  url_close(url);
}

TEST_F(Http, TheRecordIsTheCommonPartThePeerAndTheStream) {
  EXPECT_EQ(offsetof(URL_http, peer_address), sizeof(URL_record));
  EXPECT_EQ(offsetof(URL_http, stream), sizeof(URL_record) + sizeof(void*));
  Reply reply(kOk);
  ASSERT_NE(reply.url, nullptr);
  EXPECT_EQ(reply.url->type, URL_HTTP);
  EXPECT_NE(reply.url->read, nullptr);
  EXPECT_NE(reply.url->gets, nullptr);
  EXPECT_NE(reply.url->fgetc, nullptr);
  EXPECT_NE(reply.url->close, nullptr);
  EXPECT_EQ(reply.url->seek, nullptr);
  EXPECT_EQ(reply.url->tell, nullptr);
  EXPECT_EQ(reply.url->nread, 0u);
  EXPECT_EQ(reply.url->readlimit, kUnlimited);
  EXPECT_EQ(reply.url->eof, 0);
  const auto* const http = reinterpret_cast<const URL_http*>(reply.url);
  EXPECT_EQ(http->peer_address, htonl(INADDR_LOOPBACK));
  EXPECT_NE(http->stream, nullptr);
}

TEST_F(Http, AnIPv6ServerHasPeerAddressZero) {
  if (!test::has_ipv6_loopback()) GTEST_SKIP() << "no IPv6 loopback on this machine";
  ScriptedServer server(
      [](Connection& connection) {
        connection.read_request();
        connection.send(kOk + "six");
      },
      AF_INET6);
  FakedCalls faked;
  faked.gethostbyname2 = test::with_ipv6_only_host;
  const URL url =
      url_http_open(("http://six.test:" + std::to_string(server.port()) + "/").c_str());
  ASSERT_NE(url, nullptr);
  EXPECT_EQ(reinterpret_cast<URL_http*>(url)->peer_address, 0u);
  EXPECT_EQ(body_of(url), "six");
  url_close(url);
  EXPECT_EQ(server.request(), "GET / HTTP/1.0\r\nHost: six.test\r\n\r\n");
}

TEST_F(Http, InternalSockPrintsAndReturnsTheDescriptor) {
  Reply reply(kOk);
  ASSERT_NE(reply.url, nullptr);
  testing::internal::CaptureStdout();
  const int fd = url_internal_sock(reply.url);
  fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "g_url_http:361 socket=" + std::to_string(fd) + "\n");
  EXPECT_EQ(fd, fileno(reinterpret_cast<URL_http*>(reply.url)->stream));
  int type = 0;
  socklen_t size = sizeof type;
  EXPECT_EQ(getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size), 0);
  EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

// --- Requests, to the byte.

TEST_F(HttpRequest, AWholeResourceIsAskedForWithTwoLines) {
  EXPECT_EQ(request_for("/dir/file"), "GET /dir/file HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n");
}

TEST_F(HttpRequest, TheUserAgentComesBeforeTheHost) {
  url_user_agent = "tool/1.0 (x)";
  EXPECT_EQ(request_for("/"),
            "GET / HTTP/1.0\r\nUser-Agent: tool/1.0 (x)\r\nHost: 127.0.0.1\r\n\r\n");
  EXPECT_STREQ(url_user_agent, "tool/1.0 (x)");
}

TEST_F(HttpRequest, AnEmptyUserAgentIsSent) {
  url_user_agent = "";
  EXPECT_EQ(request_for("/"), "GET / HTTP/1.0\r\nUser-Agent: \r\nHost: 127.0.0.1\r\n\r\n");
}

TEST_F(HttpRequest, AnOffsetIsAskedForWithHostRangeAndAgentInThisOrder) {
  EXPECT_EQ(request_from("/f", 100),
            "GET /f HTTP/1.1\r\nHost: 127.0.0.1\r\nRange: bytes=100-\r\n"
            "User-Agent: app\r\n\r\n");
}

TEST_F(HttpRequest, OffsetsUpToSixtyThreeBitsAreWrittenOut) {
  EXPECT_NE(request_from("/", INT64_MAX).find("\r\nRange: bytes=9223372036854775807-\r\n"),
            std::string::npos);
  EXPECT_NE(request_from("/", 1).find("\r\nRange: bytes=1-\r\n"), std::string::npos);
}

TEST_F(HttpRequest, AnOffsetOfZeroOrLessSendsNoRange) {
  for (const int64_t offset : {int64_t{0}, int64_t{-1}, INT64_MIN}) {
    EXPECT_EQ(request_from("/f", offset),
              "GET /f HTTP/1.1\r\nHost: 127.0.0.1\r\nUser-Agent: app\r\n\r\n");
  }
}

TEST_F(HttpRequest, AnOffsetOverwritesTheUserAgentForLaterRequestsToo) {
  url_user_agent = "mine";
  EXPECT_NE(request_from("/", 0).find("User-Agent: app\r\n"), std::string::npos);
  EXPECT_STREQ(url_user_agent, "app");
  EXPECT_EQ(request_for("/"),
            "GET / HTTP/1.0\r\nUser-Agent: app\r\nHost: 127.0.0.1\r\n\r\n");
}

TEST_F(HttpRequest, TheAgentIsOverwrittenEvenWhenTheUrlIsTooLong) {
  url_user_agent = "mine";
  EXPECT_EQ(url_http_open_with_offset(repeated(9000, 'a').c_str(), 0), nullptr);
  EXPECT_STREQ(url_user_agent, "app");
}

TEST_F(HttpRequest, OnlyTheOffsetVariantClosesItsSendingSide) {
  for (const bool with_offset : {false, true}) {
    bool ended = false;
    ScriptedServer server([&](Connection& connection) {
      connection.read_request();
      pollfd wait{connection.fd(), POLLIN, 0};
      char byte = 0;
      ended = poll(&wait, 1, with_offset ? 20000 : 200) == 1 &&
              recv(connection.fd(), &byte, 1, 0) == 0;
      connection.send(kOk);
    });
    const std::string text = server.url();
    const URL url = with_offset ? url_http_open_with_offset(text.c_str(), 5)
                                : url_http_open(text.c_str());
    ASSERT_NE(url, nullptr);
    url_close(url);
    server.request();
    EXPECT_EQ(ended, with_offset);
  }
}

TEST_F(HttpRequest, TheTargetIsThePathToTheEndOfTheUrlAsItIs) {
  for (const char* const path : {"/a?b=c", "/a/b//c/", "/%41 b", "/x#y", "/p:8080/q", "/?",
                                 "/http://other/", "/\xc3\xa4"}) {
    EXPECT_EQ(request_for(path),
              std::string("GET ") + path + " HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n");
  }
}

TEST_F(HttpRequest, LineEndsInAUrlAreSentUnchanged) {
  EXPECT_EQ(request_for("/a\r\nX: y"),
            "GET /a\r\nX: y HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n");
}

TEST_F(HttpRequest, WithoutAPathTheRootIsAskedFor) {
  EXPECT_EQ(request_for(""), "GET / HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n");
}

TEST_F(HttpRequest, AQueryWithoutAPathIsDroppedAfterAPort) {
  EXPECT_EQ(request_for("?q=1"), "GET / HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n");
}

TEST_F(HttpRequest, TextAfterThePortNumberIsSkippedUpToTheNextSlash) {
  EXPECT_EQ(request_for("abc:12/x:y"), "GET /x:y HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n");
}

TEST_F(HttpRequest, TheSchemeMayBeMissing) {
  ScriptedServer server(kOk);
  const URL url =
      url_http_open(("127.0.0.1:" + std::to_string(server.port()) + "/x").c_str());
  ASSERT_NE(url, nullptr);
  url_close(url);
  EXPECT_EQ(server.request(), "GET /x HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n");
}

// The port that a URL leads to; -1 when no connection is tried.
int port_of(const std::string& url) {
  int port = -1;
  FakedCalls faked;
  faked.gethostbyname2 = [](const char*, int) {
    return test::real_gethostbyname2("127.0.0.1", AF_INET);
  };
  faked.connect = [&](int, const sockaddr* address, socklen_t) {
    port = ntohs(reinterpret_cast<const sockaddr_in*>(address)->sin_port);
    return errno = ECONNREFUSED, -1;
  };
  EXPECT_EQ(url_http_open(url.c_str()), nullptr);
  return port;
}

TEST_F(HttpRequest, ThePortIsParsedAsADecimalNumberModulo65536) {
  const struct {
    const char* url;
    int port;
  } rows[] = {
      {"http://h", 80},
      {"http://h/", 80},
      {"http://h/:81", 80},
      {"http://h?a:81/", 81},  // the host runs to the first ':' or '/'
      {"http://h:8080", 8080},
      {"http://h:8080/", 8080},
      {"http://h:", 0},
      {"http://h:/", 0},
      {"http://h:x/", 0},
      {"http://h:x8/", 0},
      {"http://h:8x/", 8},
      {"http://h: 81/", 81},
      {"http://h:+81/", 81},
      {"http://h:-1/", 65535},
      {"http://h:0x50/", 0},
      {"http://h:010/", 10},
      {"http://h:65535/", 65535},
      {"http://h:65536/", 0},
      {"http://h:65616/", 80},
      {"http://h:2147483647/", 65535},
      {"http://h:2147483648/", 65535},
      {"http://h:99999999999/", 65535},
      {"http://h:-2147483648/", 0},
      {"http://h:-99999999999/", 0},
      {"http://h:99999999999999999999999/", 65535},
      {"HTTP://h:81/", 0},  // the host is "HTTP"
  };
  for (const auto& row : rows) EXPECT_EQ(port_of(row.url), row.port) << row.url;
}

// The name that is looked up for a URL.
std::string name_of(const std::string& url) {
  std::string host_name;
  FakedCalls faked;
  faked.gethostbyname2 = [&](const char* name, int) -> hostent* {
    host_name = name;
    return nullptr;
  };
  EXPECT_EQ(url_http_open(url.c_str()), nullptr);
  return host_name;
}

TEST_F(HttpRequest, TheHostRunsToTheFirstColonOrSlashOrTheEnd) {
  EXPECT_EQ(name_of("http://a.b"), "a.b");
  EXPECT_EQ(name_of("http://a.b/c:d"), "a.b");
  EXPECT_EQ(name_of("http://a.b:1/c"), "a.b");
  EXPECT_EQ(name_of("http://a?b=c"), "a?b=c");
  EXPECT_EQ(name_of("http://user@a:80/"), "user@a");
  EXPECT_EQ(name_of("http://http://x/"), "http");
  EXPECT_EQ(name_of("http://[::1]/"), "[");
  EXPECT_EQ(name_of("http:///x"), "");
  EXPECT_EQ(name_of(""), "");
}

TEST_F(HttpRequest, ALongHostIsLookedUpWholeAndCutAt255CharactersInTheHeader) {
  // Leading zeros are ignored in an address, so this host can be as long as is wanted.
  const std::string tail = "177.0.0.1";
  for (const size_t length : {254u, 255u, 256u, 257u, 8000u}) {
    ScriptedServer server(kOk);
    const std::string host = repeated(length - tail.size(), '0') + tail;
    EXPECT_EQ(name_of("http://" + host + "/"), host);
    const URL url =
        url_http_open(("http://" + host + ":" + std::to_string(server.port())).c_str());
    if (url == nullptr) {
      // Not every system takes an address of any length.
#ifdef __GLIBC__
      EXPECT_GT(length, 257u);
#else
      EXPECT_GT(length, 254u);  // musl takes no longer names
#endif
      continue;
    }
    url_close(url);
    EXPECT_EQ(server.request(),
              "GET / HTTP/1.0\r\nHost: " + host.substr(0, 255) + "\r\n\r\n");
  }
}

TEST_F(HttpRequest, TheLongestUrlIsSentWhole) {
  ScriptedServer server(kOk);
  const std::string host = "127.0.0.1:" + std::to_string(server.port());
  const std::string path = "/" + repeated(8175 - host.size() - 1, 'p');
  const URL url = url_http_open(("http://" + host + path).c_str());
  ASSERT_NE(url, nullptr);
  url_close(url);
  EXPECT_EQ(server.request(), "GET " + path + " HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n");
}

TEST_F(HttpRequest, AUrlOf8176CharactersAfterTheSchemeIsTooLong) {
  FakedCalls faked;
  faked.gethostbyname2 = [](const char*, int) -> hostent* { return nullptr; };
  for (const char* const scheme : {"", "http://"}) {
    errno = 0;
    EXPECT_EQ(url_http_open((scheme + repeated(8175, 'a')).c_str()), nullptr);
    EXPECT_EQ(url_errno, ETIMEDOUT) << "short enough to be looked up";
    EXPECT_EQ(url_http_open((scheme + repeated(8176, 'a')).c_str()), nullptr);
    EXPECT_EQ(url_errno, URLERR_TOO_LONG);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    url_errno = 0;
    EXPECT_EQ(url_http_open_with_offset((scheme + repeated(100000, 'a')).c_str(), 1),
              nullptr);
    EXPECT_EQ(url_errno, 10005);
    EXPECT_EQ(errno, ENOENT);
  }
}

TEST_F(HttpRequest, TheLongestUserAgentIsSentWholeAndALongerOneFailsUnconnected) {
  const std::string longest = repeated(8177, 'u');
  url_user_agent = longest.c_str();
  EXPECT_EQ(request_for("/"),
            "GET / HTTP/1.0\r\nUser-Agent: " + longest + "\r\nHost: 127.0.0.1\r\n\r\n");
  const std::string too_long = longest + "u";
  url_user_agent = too_long.c_str();
  ScriptedServer server(kOk);
  errno = 0;
  EXPECT_EQ(url_http_open(server.url().c_str()), nullptr);
  EXPECT_EQ(url_errno, URLERR_TOO_LONG);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(server.connections(), 0u);
}

TEST_F(HttpRequest, AnOffsetIsNotHinderedByALongUserAgentThatItReplaces) {
  const std::string long_agent = repeated(20000, 'u');
  url_user_agent = long_agent.c_str();
  EXPECT_NE(request_from("/", 1).find("User-Agent: app\r\n"), std::string::npos);
}

TEST_F(HttpRequest, AFullWorkBufferIsSentWithoutGapOrRepetition) {
  // Path and agent together are longer than the buffer in which lines are gathered.
  for (const size_t agent_length : {1u, 4000u, 8000u}) {
    const std::string agent = repeated(agent_length, 'u');
    const std::string path = "/" + repeated(8100, 'p');
    url_user_agent = agent.c_str();
    EXPECT_EQ(request_for(path), "GET " + path + " HTTP/1.0\r\nUser-Agent: " + agent +
                                     "\r\nHost: 127.0.0.1\r\n\r\n");
  }
}

TEST_F(HttpRequest, ShortAndInterruptedWritesAreContinued) {
  ScriptedServer server(kOk);
  FakedCalls faked;
  int calls = 0;
  faked.send = [&](int fd, const void* buf, size_t n, int flags) -> ssize_t {
    if (++calls % 3 == 0) return errno = EINTR, -1;
    return test::real_send(fd, buf, std::min<size_t>(n, 7), flags);
  };
  const URL url = url_http_open(server.url("/some/path").c_str());
  ASSERT_NE(url, nullptr);
  url_close(url);
  EXPECT_EQ(server.request(), "GET /some/path HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n");
}

TEST_F(HttpRequest, ARequestOfUsualLengthLeavesInOneWrite) {
  ScriptedServer server(kOk);
  FakedCalls faked;
  int calls = 0;
  faked.send = [&](int fd, const void* buf, size_t n, int flags) {
    ++calls;
    EXPECT_EQ(flags & MSG_NOSIGNAL, MSG_NOSIGNAL);
    return test::real_send(fd, buf, n, flags);
  };
  url_user_agent = "tool";
  const URL url = url_http_open(server.url("/path").c_str());
  ASSERT_NE(url, nullptr);
  url_close(url);
  EXPECT_EQ(calls, 1);
}

// --- Through a proxy.

// The request that a proxy gets for a URL.
std::string proxied(const std::string& url_text, bool with_offset = false) {
  ScriptedServer proxy([with_offset](Connection& connection) {
    if (with_offset) {
      connection.read_to_end();
    } else {
      connection.read_request();
    }
    connection.send(kOk + "via");
  });
  url_http_proxy_host = "127.0.0.1";
  url_http_proxy_port = proxy.port();
  const URL url = with_offset ? url_http_open_with_offset(url_text.c_str(), 7)
                              : url_http_open(url_text.c_str());
  EXPECT_NE(url, nullptr) << url_text;
  if (url == nullptr) return "";
  EXPECT_EQ(body_of(url), "via");
  url_close(url);
  return proxy.request();
}

TEST_F(HttpProxy, GetsTheWholeUrlAsTargetAndTheUrlsHost) {
  EXPECT_EQ(proxied("http://far.test:81/a?b=c"),
            "GET http://far.test:81/a?b=c HTTP/1.0\r\nHost: far.test\r\n\r\n");
  EXPECT_EQ(proxied("http://far.test"),
            "GET http://far.test HTTP/1.0\r\nHost: far.test\r\n\r\n");
  EXPECT_EQ(proxied("far.test/x"), "GET far.test/x HTTP/1.0\r\nHost: far.test\r\n\r\n");
  EXPECT_EQ(proxied("http:///x"), "GET http:///x HTTP/1.0\r\nHost: \r\n\r\n");
  url_user_agent = "tool";
  EXPECT_EQ(proxied("http://far.test/"),
            "GET http://far.test/ HTTP/1.0\r\nUser-Agent: tool\r\nHost: far.test\r\n\r\n");
}

TEST_F(HttpProxy, GetsTheOffsetVariantInItsOwnOrder) {
  EXPECT_EQ(proxied("http://far.test/x", true),
            "GET http://far.test/x HTTP/1.1\r\nHost: far.test\r\nRange: bytes=7-\r\n"
            "User-Agent: app\r\n\r\n");
}

TEST_F(HttpProxy, AHostOf255CharactersIsReplacedByLocalhost) {
  const std::string longest = repeated(254, 'h');
  EXPECT_EQ(proxied("http://" + longest + "/"),
            "GET http://" + longest + "/ HTTP/1.0\r\nHost: " + longest + "\r\n\r\n");
  for (const size_t length : {255u, 256u, 5000u}) {
    const std::string host = repeated(length, 'h');
    EXPECT_EQ(proxied("http://" + host + ":80/"),
              "GET http://" + host + ":80/ HTTP/1.0\r\nHost: localhost\r\n\r\n");
  }
}

TEST_F(HttpProxy, AShortHostAfterALongOneIsSentAlone) {
  proxied("http://" + repeated(250, 'h') + "/");
  EXPECT_EQ(proxied("http://a/"), "GET http://a/ HTTP/1.0\r\nHost: a\r\n\r\n");
}

TEST_F(HttpProxy, TheLongestTargetIsSentWholeAndALongerOneFailsUnconnected) {
  const std::string longest = "http://h/" + repeated(8176 - 9, 't');
  EXPECT_EQ(proxied(longest), "GET " + longest + " HTTP/1.0\r\nHost: h\r\n\r\n");

  ScriptedServer proxy(kOk);
  url_http_proxy_host = "127.0.0.1";
  url_http_proxy_port = proxy.port();
  for (const std::string& too_long : {longest + "t", "http://h/" + repeated(100000, 't')}) {
    errno = 0;
    url_errno = 0;
    EXPECT_EQ(url_http_open(too_long.c_str()), nullptr);
    EXPECT_EQ(url_errno, URLERR_TOO_LONG);
    EXPECT_EQ(errno, ENOENT);
  }
  EXPECT_EQ(proxy.connections(), 0u);
}

TEST_F(HttpProxy, ThatDoesNotRespondIsATimeOut) {
  url_http_proxy_host = "127.0.0.1";
  url_http_proxy_port = test::unused_port();
  testing::internal::CaptureStderr();
  EXPECT_EQ(url_http_open("http://far.test/"), nullptr);
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(url_errno, ETIMEDOUT);
  EXPECT_EQ(errno, ETIMEDOUT);
}

// --- The status line.

TEST_F(HttpStatus, TwoHundredAndTwoHundredAndSixAreAccepted) {
  for (const char* const line :
       {"HTTP/1.0 200 OK\r\n", "HTTP/1.1 200 OK\r\n", "HTTP/1.1 206 Partial Content\r\n",
        "HTTP/1.0 200\n", "200 OK\r\n", "206\n", "HTTP/1.1 2000\r\n", "200"}) {
    Reply reply(std::string(line) + "\r\nbody");
    EXPECT_NE(reply.url, nullptr) << line;
    if (reply.url != nullptr && line[3] != '\0') {
      EXPECT_EQ(body_of(reply.url), "body") << line;
    }
  }
}

TEST_F(HttpStatus, FourHundredAndFourIsNotFound) {
  for (const char* const line : {"HTTP/1.0 404 Not Found\r\n", "HTTP/1.1 404\r\n", "404\n",
                                 "HTTP/1.1 4040\r\n", "404"}) {
    Reply reply(line);
    EXPECT_EQ(reply.url, nullptr);
    EXPECT_EQ(url_errno, URLERR_HTTP_NOT_FOUND) << line;
    EXPECT_EQ(reply.error, ENOENT);
  }
}

TEST_F(HttpStatus, EveryOtherStatusIsENOENT) {
  for (const char* const line :
       {"HTTP/1.1 301 Moved\r\n", "HTTP/1.0 500 x\r\n", "HTTP/1.1 201 Created\r\n",
        "HTTP/1.1 204\r\n", "HTTP/1.1 20\r\n", "HTTP/1.1  200 OK\r\n",
        "HTTP/2.0 200 OK\r\n", "HTTP/1.2 200 OK\r\n", "http/1.1 200 OK\r\n",
        "HTTP/1.1\t200 OK\r\n", " 200\r\n", "HTTP/1.1 416 Range\r\n", "nonsense\r\n",
        "\r\n", "\n", "H"}) {
    Reply reply(line);
    EXPECT_EQ(reply.url, nullptr);
    EXPECT_EQ(url_errno, ENOENT) << line;
    EXPECT_EQ(reply.error, ENOENT);
  }
}

TEST_F(HttpStatus, AServerThatClosesWithoutAReplyCannotBeOpened) {
  Reply reply("");
  EXPECT_EQ(reply.url, nullptr);
  EXPECT_EQ(url_errno, URLERR_CANT_OPEN);
  EXPECT_EQ(reply.error, ENOENT);
}

TEST_F(HttpStatus, AResetBeforeTheStatusLineIsTheSystemsError) {
  ScriptedServer server([](Connection& connection) {
    connection.read_request();
    connection.reset();
  });
  EXPECT_EQ(url_http_open(server.url().c_str()), nullptr);
  EXPECT_EQ(url_errno, ECONNRESET);
  EXPECT_EQ(errno, ECONNRESET);
}

TEST_F(HttpStatus, AFailedWriteIsNoFailureOfItsOwn) {
  // The connection works, only the request is not sent: the missing response shows it.
  ScriptedServer server([](Connection&) {});
  FakedCalls faked;
  faked.send = [](int, const void*, size_t, int) -> ssize_t { return errno = EPIPE, -1; };
  EXPECT_EQ(url_http_open(server.url().c_str()), nullptr);
  EXPECT_EQ(url_errno, URLERR_CANT_OPEN);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(HttpStatus, AServerThatIsGoneRaisesNoSignal) {
  struct sigaction previous {};
  struct sigaction fatal {};
  fatal.sa_handler = SIG_DFL;
  sigaction(SIGPIPE, &fatal, &previous);
  // Resets immediately: the request meets a closed connection.
  ScriptedServer server([](Connection& connection) { connection.reset(); });
  for (int i = 0; i < 20; ++i) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(url_http_open_with_offset(server.url("/" + repeated(8000, 'p')).c_str(), 3),
              nullptr);
    testing::internal::GetCapturedStderr();
  }
  sigaction(SIGPIPE, &previous, nullptr);
}

TEST_F(HttpStatus, AStatusLineLongerThanTheBufferGoesOnAsAHeaderLine) {
  const std::string start = "HTTP/1.0 200 ";
  Reply reply(start + repeated(8191 - start.size(), 's') + "Content-Length: 2\r\n\r\nbody");
  ASSERT_NE(reply.url, nullptr);
  EXPECT_EQ(body_of(reply.url), "bo");
}

// --- The length.

uint32_t limit_for(const std::string& headers) {
  Reply reply("HTTP/1.0 200 OK\r\n" + headers + "\r\n");
  EXPECT_NE(reply.url, nullptr) << headers;
  return reply.limit();
}

// The same with an offset.
uint32_t limit_from(int64_t offset, const std::string& headers) {
  ScriptedServer server("HTTP/1.1 206 Partial Content\r\n" + headers + "\r\n");
  const URL url = url_http_open_with_offset(server.url().c_str(), offset);
  EXPECT_NE(url, nullptr) << headers;
  if (url == nullptr) return 0;
  const uint32_t limit = url->readlimit;
  EXPECT_EQ(url->nread, 0u);
  url_close(url);
  return limit;
}

TEST_F(HttpLength, BecomesTheReadLimit) {
  const struct {
    const char* value;
    uint32_t limit;
  } rows[] = {
      {" 10", 10},
      {"10", 10},
      {"\t 10", 10},
      {" +10", 10},
      {" 10 bytes", 10},
      {" 010", 10},
      {" 0x10", 0},
      {" 0", 0},
      {"", 0},
      {" none", 0},
      {" -1", kUnlimited},
      {" -10", kUnlimited},
      {" 2147483646", 2147483646},
      {" 2147483647", kUnlimited},
      {" 2147483648", kUnlimited},
      {" 4294967297", kUnlimited},
      {" 99999999999999999999999", kUnlimited},
      {" -2147483648", kUnlimited},
      {" -99999999999", kUnlimited},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(limit_for(std::string("Content-Length:") + row.value + "\r\n"), row.limit)
        << row.value;
  }
}

TEST_F(HttpLength, IsAddedToTheOffset) {
  EXPECT_EQ(limit_from(100, "Content-Length: 50\r\n"), 150u);
  EXPECT_EQ(limit_from(0, "Content-Length: 50\r\n"), 50u);
  EXPECT_EQ(limit_from(-10, "Content-Length: 50\r\n"), 40u);
  EXPECT_EQ(limit_from(100, "Content-Length: x\r\n"), 100u);
  EXPECT_EQ(limit_from(100, ""), kUnlimited);
}

TEST_F(HttpLength, OfAnOffsetIsA64BitSumCutTo32Bits) {
  EXPECT_EQ(limit_from(0, "Content-Length: 2147483646\r\n"), 2147483646u);
  EXPECT_EQ(limit_from(0, "Content-Length: 2147483647\r\n"), kUnlimited);
  EXPECT_EQ(limit_from(1, "Content-Length: 2147483646\r\n"), kUnlimited);
  EXPECT_EQ(limit_from(0, "Content-Length: -2147483648\r\n"), kUnlimited);
  // Negative as 32 bits: no limit.
  EXPECT_EQ(limit_from(0, "Content-Length: 2147483648\r\n"), kUnlimited);
  EXPECT_EQ(limit_from(0, "Content-Length: 3000000000\r\n"), kUnlimited);
  // Four gigabytes and a little: only the little is left.
  EXPECT_EQ(limit_from(0, "Content-Length: 4294967303\r\n"), 7u);
  EXPECT_EQ(limit_from(int64_t{1} << 32, "Content-Length: 5\r\n"), 5u);
  // Too long for 64 bits: the largest number, whose low half is -1.
  EXPECT_EQ(limit_from(0, "Content-Length: 99999999999999999999\r\n"), kUnlimited);
  // The sum wraps.
  EXPECT_EQ(limit_from(INT64_MAX, "Content-Length: 9223372036854775807\r\n"), kUnlimited);
  EXPECT_EQ(limit_from(INT64_MAX, "Content-Length: 11\r\n"), 10u);
}

TEST_F(HttpLength, TheLastOfSeveralHolds) {
  EXPECT_EQ(limit_for("Content-Length: 5\r\nX: y\r\nContent-Length: 9\r\n"), 9u);
  EXPECT_EQ(limit_for("Content-Length: 9\r\nContent-Length: 5\r\n"), 5u);
  EXPECT_EQ(limit_for("Content-Length: 9\r\nContent-Length: -1\r\n"), kUnlimited);
}

TEST_F(HttpLength, OnlyTheExactNameAtTheStartOfALineCounts) {
  for (const char* const line :
       {"content-length: 5", "Content-length: 5", "CONTENT-LENGTH: 5", " Content-Length: 5",
        "Content-Length : 5", "X-Content-Length: 5", "X: Content-Length: 5",
        "Content-Lengt: 5"}) {
    EXPECT_EQ(limit_for(std::string(line) + "\r\n"), kUnlimited) << line;
  }
}

TEST_F(HttpLength, BoundsTheStreamEvenIfTheServerSendsMore) {
  Reply reply("HTTP/1.0 200 OK\r\nContent-Length: 10\r\n\r\n0123456789surplus");
  ASSERT_NE(reply.url, nullptr);
  char buffer[32] = "";
  EXPECT_EQ(url_read(reply.url, buffer, sizeof buffer), 10);
  EXPECT_EQ(std::string(buffer, 10), "0123456789");
  EXPECT_EQ(url_read(reply.url, buffer, sizeof buffer), 0);
  EXPECT_EQ(reply.url->eof, 1);
}

// --- Header lines.

TEST_F(HttpHeaders, BareLineFeedsEndLinesToo) {
  Reply reply("HTTP/1.0 200 OK\nX: y\nContent-Length: 3\n\nabcd");
  ASSERT_NE(reply.url, nullptr);
  EXPECT_EQ(body_of(reply.url), "abc");
}

TEST_F(HttpHeaders, ALoneCarriageReturnIsNoEmptyLine) {
  Reply reply("HTTP/1.0 200 OK\r\n\rX: y\r\n\r\nbody");
  ASSERT_NE(reply.url, nullptr);
  EXPECT_EQ(body_of(reply.url), "body");
}

TEST_F(HttpHeaders, MayArriveInSingleBytes) {
  ScriptedServer server([](Connection& connection) {
    connection.read_request();
    connection.send_slowly(
        "HTTP/1.1 200 OK\r\nServer: slow\r\nContent-Length: 4\r\n\r\nbody");
  });
  const URL url = url_http_open(server.url().c_str());
  ASSERT_NE(url, nullptr);
  EXPECT_EQ(url->readlimit, 4u);
  EXPECT_EQ(body_of(url), "body");
  url_close(url);
}

TEST_F(HttpHeaders, ALineLongerThanTheBufferComesInPiecesThatCountAsLines) {
  // 8191 bytes come first; what follows is looked at as a line of its own.
  const std::string first = "X: " + repeated(8188, 'x');
  Reply with_length("HTTP/1.0 200 OK\r\n" + first + "Content-Length: 2\r\n\r\nbody");
  ASSERT_NE(with_length.url, nullptr);
  EXPECT_EQ(body_of(with_length.url), "bo");

  Reply with_end("HTTP/1.0 200 OK\r\n" + first + "\r\nContent-Length: 2\r\n\r\nbody");
  ASSERT_NE(with_end.url, nullptr);
  EXPECT_EQ(with_end.limit(), kUnlimited);
  EXPECT_EQ(body_of(with_end.url), "Content-Length: 2\r\n\r\nbody");

  Reply one_shorter("HTTP/1.0 200 OK\r\n" + first.substr(1) +
                    "\nContent-Length: 2\n\nbody");
  ASSERT_NE(one_shorter.url, nullptr);
  EXPECT_EQ(one_shorter.limit(), 2u);
}

TEST_F(HttpHeaders, MuchTextInThemIsReadOver) {
  std::string headers;
  for (int i = 0; i < 2000; ++i) headers += "X-Number-" + std::to_string(i) + ": value\r\n";
  Reply reply("HTTP/1.0 200 OK\r\n" + headers + "Z: " + repeated(100000, 'z') +
              "\r\n\r\nend");
  ASSERT_NE(reply.url, nullptr);
  EXPECT_EQ(body_of(reply.url), "end");
}

TEST_F(HttpHeaders, AStreamThatEndsInsideThemIsEmpty) {
  for (const char* const text :
       {"HTTP/1.0 200 OK\r\n", "HTTP/1.0 200 OK", "HTTP/1.0 200 OK\r\nX: y\r\n",
        "HTTP/1.0 200 OK\r\nContent-Length: 5", "HTTP/1.0 200 OK\r\n\r\n"}) {
    Reply reply(text);
    ASSERT_NE(reply.url, nullptr) << text;
    char byte = 0;
    EXPECT_EQ(url_read(reply.url, &byte, 1), 0) << text;
    EXPECT_EQ(url_fgetc(reply.url), -1);
  }
}

// Otherwise whatever follows the part already read would be taken for the body.
TEST_F(HttpHeaders, AResetInsideThemFailsTheOpening) {
  for (const char* const headers : {"X: 1\r\n", "X: 1\r\nContent-Length: 5\r\nY:"}) {
    ScriptedServer server([headers](Connection& connection) {
      connection.read_request();
      connection.send(std::string("HTTP/1.0 200 OK\r\n") + headers);
      connection.reset();  // what has arrived can be read before
    });
    url_errno = 0;
    EXPECT_EQ(url_http_open(server.url().c_str()), nullptr) << headers;
    EXPECT_EQ(errno, ECONNRESET) << headers;
    EXPECT_EQ(url_errno, ECONNRESET) << headers;
  }
}

TEST_F(HttpHeaders, ANulByteInThemHidesTheRestOfItsLineOnly) {
  using namespace std::string_literals;
  Reply reply("HTTP/1.0 200 OK\r\nX: \0y\r\n\0\r\nContent-Length: 3\r\n\r\nbody"s);
  ASSERT_NE(reply.url, nullptr);
  EXPECT_EQ(body_of(reply.url), "bod");
}

// --- The body.

TEST_F(HttpBody, IsHandedOnByteForByte) {
  std::string body;
  for (int i = 0; i < 100000; ++i) body += static_cast<char>(i * 31 / 7);
  Reply reply("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Length: " +
              std::to_string(body.size()) + "\r\n\r\n" + body);
  ASSERT_NE(reply.url, nullptr);
  EXPECT_EQ(body_of(reply.url), body);
  EXPECT_EQ(reply.url->nread, body.size());
}

TEST_F(HttpBody, ReadFillsTheBufferAcrossSegments) {
  ScriptedServer server([](Connection& connection) {
    connection.read_request();
    connection.send(kOk);
    connection.send_slowly("0123456789");
  });
  const URL url = url_http_open(server.url().c_str());
  ASSERT_NE(url, nullptr);
  char buffer[16] = "";
  EXPECT_EQ(url_read(url, buffer, 8), 8);
  EXPECT_EQ(url_read(url, buffer + 8, 8), 2);
  EXPECT_STREQ(buffer, "0123456789");
  url_close(url);
}

TEST_F(HttpBody, LargeReadsFollowWhatOtherReadsLeft) {
  std::string body = "a line\n";
  for (int i = 0; i < 30000; ++i) body += static_cast<char>('a' + i % 26);
  ScriptedServer server([&body](Connection& connection) {
    connection.read_request();
    connection.send(kOk + body.substr(0, 9000));
    connection.send(body.substr(9000, 9000));
    connection.send(body.substr(18000));
  });
  const URL url = url_http_open(server.url().c_str());
  ASSERT_NE(url, nullptr);
  FILE* const stream = reinterpret_cast<URL_http*>(url)->stream;
  std::vector<char> buffer(20000);
  EXPECT_STREQ(url_gets(url, buffer.data(), 100), "a line\n");
  EXPECT_EQ(url_fgetc(url), 'a');
  ASSERT_EQ(url_read(url, buffer.data(), 20000), 20000);
  EXPECT_EQ(std::string(buffer.data(), 20000), body.substr(8, 20000));
  EXPECT_FALSE(feof(stream));
  ASSERT_EQ(url_read(url, buffer.data(), 20000), 9999);
  EXPECT_EQ(std::string(buffer.data(), 9999), body.substr(20008));
  EXPECT_TRUE(feof(stream));
  EXPECT_FALSE(ferror(stream));
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(url_read(url, buffer.data(), 20000), 0);
  EXPECT_EQ(url_fgetc(url), -1);
  url_close(url);
}

TEST_F(HttpBody, LargeReadsFillTheBufferAcrossSlowSegments) {
  const std::string body = repeated(5000, 'x') + repeated(40, 'y');
  ScriptedServer server([&body](Connection& connection) {
    connection.read_request();
    connection.send(kOk + body.substr(0, 5000));
    connection.send_slowly(body.substr(5000));
  });
  const URL url = url_http_open(server.url().c_str());
  ASSERT_NE(url, nullptr);
  std::vector<char> buffer(8192);
  ASSERT_EQ(url_read(url, buffer.data(), 5020), 5020);
  EXPECT_EQ(std::string(buffer.data(), 5020), body.substr(0, 5020));
  EXPECT_EQ(url_read(url, buffer.data(), 8192), 20);
  url_close(url);
}

TEST_F(HttpBody, LargeReadsGiveWhatCameBeforeAReset) {
  std::atomic<bool> taken{false};
  ScriptedServer server([&taken](Connection& connection) {
    connection.read_request();
    connection.send(kOk + repeated(6000, 'x'));
    while (!taken) std::this_thread::yield();
    connection.reset();
  });
  const URL url = url_http_open(server.url().c_str());
  ASSERT_NE(url, nullptr);
  std::vector<char> buffer(16384);
  EXPECT_EQ(url_read(url, buffer.data(), 5000), 5000);
  std::thread release([&taken] { taken = true; });
  const int32_t count = url_read(url, buffer.data(), 16384);
  EXPECT_TRUE(count == 1000 || count == 0) << count;  // a reset may overtake what was sent
  EXPECT_EQ(errno, ECONNRESET);
  EXPECT_EQ(url_errno, URLERR_NONE);
  EXPECT_TRUE(ferror(reinterpret_cast<URL_http*>(url)->stream));
  release.join();
  url_close(url);
}

TEST_F(HttpBody, LargeReadsBeginWithAByteThatWasPushedBack) {
  Reply reply(kOk + repeated(10000, 'x'));
  ASSERT_NE(reply.url, nullptr);
  EXPECT_EQ(url_fgetc(reply.url), 'x');
  ASSERT_EQ(ungetc('#', reinterpret_cast<URL_http*>(reply.url)->stream), '#');
  std::vector<char> buffer(9000);
  ASSERT_EQ(url_read(reply.url, buffer.data(), 9000), 9000);
  EXPECT_EQ(std::string(buffer.data(), 9000), "#" + repeated(8999, 'x'));
}

TEST_F(HttpBody, ComesFromWhateverStreamAProgramPutThere) {
  std::string text = repeated(6000, 'x') + repeated(3000, 'y');
  FILE* const file = std::tmpfile();
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(std::fwrite(text.data(), 1, text.size(), file), text.size());
  std::rewind(file);
  FILE* const memory = fmemopen(text.data(), text.size(), "r");
  for (FILE* const other : {file, memory}) {
    Reply reply(kOk);
    ASSERT_NE(reply.url, nullptr);
    auto& stream = reinterpret_cast<URL_http*>(reply.url)->stream;
    std::fclose(std::exchange(stream, other));
    std::vector<char> buffer(16384);
    ASSERT_EQ(url_read(reply.url, buffer.data(), 8000), 8000);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(std::string(buffer.data(), 8000), text.substr(0, 8000));
    EXPECT_EQ(std::ftell(stream), 8000);
    ASSERT_EQ(url_read(reply.url, buffer.data(), 16384), 1000);
    EXPECT_EQ(std::string(buffer.data(), 1000), text.substr(8000));
  }
}

TEST_F(HttpBody, LinesKeepTheirEndAndStopAtTheBuffersSize) {
  Reply reply(kOk + "one\r\ntwo\nlonger line\nlast");
  ASSERT_NE(reply.url, nullptr);
  char buffer[8];
  const std::vector<std::string> expected{"one\r\n", "two\n", "longer ", "line\n", "last"};
  for (const std::string& line : expected) {
    ASSERT_EQ(url_gets(reply.url, buffer, sizeof buffer), buffer);
    EXPECT_EQ(buffer, line);
  }
  EXPECT_EQ(url_gets(reply.url, buffer, sizeof buffer), nullptr);
  EXPECT_EQ(reply.url->nread, 25u);
}

TEST_F(HttpBody, LineEndsAreNotThoseOfTheNewlineCode) {
  url_newline_code = 'w';
  Reply reply(kOk + "one\ntwo");
  char buffer[16] = "";
  EXPECT_EQ(url_gets(reply.url, buffer, sizeof buffer), buffer);
  url_newline_code = 10;
  EXPECT_STREQ(buffer, "one\n");
}

TEST_F(HttpBody, BytesAreUnsignedAndTheEndIsMinusOne) {
  Reply reply(kOk + "A\xff");
  ASSERT_NE(reply.url, nullptr);
  EXPECT_EQ(url_fgetc(reply.url), 'A');
  EXPECT_EQ(url_fgetc(reply.url), 255);
  EXPECT_EQ(url_fgetc(reply.url), -1);
  EXPECT_EQ(url_errno, URLERR_NONE) << "an end is no error";
  EXPECT_EQ(errno, 0);
}

TEST_F(HttpBody, TheByteReaderPassesAStaleErrnoOnWhenItsCallerDid) {
  // Line readers call the slot directly, without clearing errno before.
  Reply reply(kOk);
  ASSERT_NE(reply.url, nullptr);
  url_errno = URLERR_NONE;
  errno = EDOM;
  EXPECT_EQ(reply.url->fgetc(reply.url), -1);
  EXPECT_EQ(url_errno, EDOM);
  url_errno = URLERR_NONE;
  errno = 0;
  EXPECT_EQ(reply.url->fgetc(reply.url), -1);
  EXPECT_EQ(url_errno, URLERR_NONE);
}

TEST_F(HttpBody, AResetGivesZeroFromReadAndItsErrorFromTheByteReader) {
  for (const bool by_byte : {false, true}) {
    ScriptedServer server([](Connection& connection) {
      connection.read_request();
      connection.send(kOk);
      // The client acknowledges before it is cut off, so it has read the headers.
      char ready = 0;
      recv(connection.fd(), &ready, 1, 0);
      connection.reset();
    });
    const URL url = url_http_open(server.url().c_str());
    ASSERT_NE(url, nullptr);
    socket_write(fileno(reinterpret_cast<URL_http*>(url)->stream), "x", 1);
    char byte = 0;
    if (by_byte) {
      EXPECT_EQ(url_fgetc(url), -1);
      EXPECT_EQ(url_errno, ECONNRESET);
    } else {
      EXPECT_EQ(url_read(url, &byte, 1), 0);
      EXPECT_EQ(errno, ECONNRESET);
      EXPECT_EQ(url_errno, URLERR_NONE);
    }
    url_close(url);
  }
}

TEST_F(HttpBody, ForwardSeeksReadAndReturnThePreviousPosition) {
  std::string body;
  for (int i = 0; i < 20000; ++i) body += static_cast<char>('a' + i % 26);
  Reply reply("HTTP/1.0 200 OK\r\nContent-Length: 20000\r\n\r\n" + body);
  ASSERT_NE(reply.url, nullptr);
  char buffer[40];
  EXPECT_EQ(url_nread(reply.url, buffer, 40), 40);
  EXPECT_EQ(url_seek(reply.url, 15000, SEEK_SET), 40);
  EXPECT_EQ(url_tell(reply.url), 15000);
  EXPECT_EQ(url_fgetc(reply.url), body[15000]);
  EXPECT_EQ(url_seek(reply.url, 10, SEEK_SET), -1);
  EXPECT_EQ(url_errno, EPERM);
}

TEST_F(HttpBody, CloseKeepsErrnoAndClosesTheSocket) {
  ScriptedServer server(kOk);
  const URL url = url_http_open(server.url().c_str());
  ASSERT_NE(url, nullptr);
  const int fd = fileno(reinterpret_cast<URL_http*>(url)->stream);
  errno = EDOM;
  url->close(url);
  EXPECT_EQ(errno, EDOM);
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(HttpBody, CloseKeepsErrnoEvenWhenTheSocketCannotBeClosed) {
  ScriptedServer server(kOk);
  const URL url = url_http_open(server.url().c_str());
  ASSERT_NE(url, nullptr);
  ASSERT_EQ(close(fileno(reinterpret_cast<URL_http*>(url)->stream)), 0);
  errno = EDOM;
  url->close(url);
  EXPECT_EQ(errno, EDOM);
}

// --- Failures.

TEST_F(HttpFailure, WithoutAConnectionBothErrorsAreTimeOutWhateverTheReason) {
  const uint16_t port = test::unused_port();
  const int before = open_descriptors();
  const std::string refused = "http://127.0.0.1:" + std::to_string(port) + "/";
  for (const std::string& text : {refused, std::string("http://nosuch.invalid/")}) {
    testing::internal::CaptureStderr();
    errno = 0;
    url_errno = 0;
    EXPECT_EQ(url_http_open(text.c_str()), nullptr);
    EXPECT_EQ(url_errno, ETIMEDOUT) << text;
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(url_http_open_with_offset(text.c_str(), 1), nullptr);
    EXPECT_EQ(url_errno, ETIMEDOUT);
    testing::internal::GetCapturedStderr();
  }
  EXPECT_TRUE(descriptors_return_to(before));
}

TEST_F(HttpFailure, NothingLeaksAndNothingIsPrintedOnAnyOfThem) {
  const int before = open_descriptors();
  for (const char* const reply : {"", "HTTP/1.0 404 x\r\n\r\n", "HTTP/1.0 500 x\r\n\r\n"}) {
    ScriptedServer server(reply);
    testing::internal::CaptureStderr();
    AllocationFaults faults(0);
    const URL url = url_http_open(server.url().c_str());
    faults.disarm();
    EXPECT_EQ(url, nullptr);
    EXPECT_EQ(faults.outstanding(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  }
  EXPECT_TRUE(descriptors_return_to(before));
}

TEST_F(HttpFailure, OfAnyAllocationGivesNullAndLeaksNothing) {
  ScriptedServer server("HTTP/1.0 200 OK\r\nContent-Length: 4\r\n\r\nbody");
  const std::string text = server.url("/x");
  // What the resolver keeps after its first look-up is not a leak.
  url_close(url_http_open(text.c_str()));
  const int before = open_descriptors();
  test::for_each_failed_allocation([&](AllocationFaults& faults) {
    errno = 0;
    url_errno = 0;
    const URL url = url_http_open(text.c_str());
    const int error = errno;
    char body[5] = "";
    if (url != nullptr) {
      url_read(url, body, 4);
      url_close(url);
    }
    faults.disarm();
    if (url == nullptr) {
      // The resolver allocates, too: without memory for it there is no connection.
      EXPECT_TRUE(url_errno == ENOMEM || url_errno == ETIMEDOUT) << url_errno;
      EXPECT_EQ(error, url_errno);
    } else {
      EXPECT_STREQ(body, "body");
    }
  });
  EXPECT_TRUE(descriptors_return_to(before));
}

// A listener that accepts nothing: the system makes a connection, but no reply comes. With
// a full queue it makes none.
class SilentServer {
 public:
  explicit SilentServer(bool is_full)
      : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address_;
    EXPECT_EQ(bind(listener_, generic(), size), 0);
    EXPECT_EQ(listen(listener_, is_full ? 0 : 16), 0);
    EXPECT_EQ(getsockname(listener_, generic(), &size), 0);
    for (int& filler : fillers_) {
      if (is_full) filler = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
      if (is_full) connect(filler, generic(), size);
    }
  }
  ~SilentServer() {
    close(listener_);
    for (const int filler : fillers_) close(filler);
  }
  int port() const { return ntohs(address_.sin_port); }

 private:
  sockaddr* generic() { return reinterpret_cast<sockaddr*>(&address_); }

  const int listener_;
  sockaddr_in address_{};
  int fillers_[3] = {-1, -1, -1};
};

TEST_F(HttpFailure, AThreadCancelledWhileItOpensLosesNothing) {
  for (const bool is_full : {false, true}) {
#ifndef __GLIBC__
    if (!is_full) continue;  // reading a stream is no cancellation point of musl's
#endif
    SCOPED_TRACE(is_full ? "connecting" : "reading the status");
    const SilentServer server(is_full);
    const std::string url = "http://127.0.0.1:" + std::to_string(server.port()) + "/";
    test::expect_nothing_lost([&url] { url_http_open(url.c_str()); }, PTHREAD_CANCELED,
                              [](pthread_t thread) {
                                usleep(50000);
                                ASSERT_EQ(pthread_cancel(thread), 0);
                              });
  }
}

// The socket would get the number of standard output. It is moved, and the low one closed.
TEST_F(HttpFailure, AThreadThatIsToBeCancelledLosesNoSocketThatIsMoved) {
  const int standard_output = dup(STDOUT_FILENO);
  ASSERT_EQ(close(STDOUT_FILENO), 0);
  const int before = open_descriptors();
  std::thread([] {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    pthread_cancel(pthread_self());
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    open_socket("127.0.0.1", 1, nullptr);
  }).join();
  const int after = open_descriptors();
  dup2(standard_output, STDOUT_FILENO);
  close(standard_output);
  EXPECT_EQ(after, before);
}

TEST_F(HttpFailure, OfTheRecordsAllocationComesBeforeAllOtherWork) {
  ScriptedServer server(kOk);
  const std::string text = server.url();
  {
    AllocationFaults faults(1);
    EXPECT_EQ(url_http_open_with_offset(text.c_str(), 3), nullptr);
    faults.disarm();
    EXPECT_EQ(test::allocation_size(1), sizeof(URL_http));
  }
  EXPECT_EQ(url_errno, ENOMEM);
  EXPECT_STREQ(url_user_agent, "app");
  EXPECT_EQ(server.connections(), 0u);
}

}  // namespace
