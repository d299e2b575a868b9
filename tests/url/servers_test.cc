// Reads from real servers, which servers_test.py starts; it passes their addresses and the
// folder that they serve in the environment.
//
// SPDX-License-Identifier: MIT

#include <groundwork/url.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

std::string setting(const char* name) {
  const char* const value = std::getenv(name);
  if (value != nullptr) return value;
  std::fprintf(stderr, "%s is not set: run this through servers_test.py\n", name);
  std::abort();
}

// FNV-1a over 64 bits, and the length.
struct Checksum {
  uint64_t hash = 14695981039346656037u;
  int64_t length = 0;

  void add(const char* bytes, size_t n) {
    for (size_t i = 0; i < n; ++i) {
      hash = (hash ^ static_cast<unsigned char>(bytes[i])) * 1099511628211u;
    }
    length += static_cast<int64_t>(n);
  }
  bool operator==(const Checksum&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Checksum& sum) {
  return out << sum.length << " bytes, " << std::hex << sum.hash << std::dec;
}

// Of a served file, from a byte on. Kept, since large files are asked for again and again.
const Checksum& of_file(const std::string& name, int64_t offset = 0) {
  static std::map<std::pair<std::string, int64_t>, Checksum> known;
  const auto [entry, is_new] = known.try_emplace({name, offset});
  Checksum& sum = entry->second;
  if (!is_new) return sum;
  std::FILE* const file = std::fopen((setting("GW_SERVED") + "/" + name).c_str(), "rb");
  EXPECT_NE(file, nullptr) << name;
  if (file == nullptr) return sum;
  fseeko(file, static_cast<off_t>(offset), SEEK_SET);
  std::vector<char> buffer(1 << 16);
  size_t n = 0;
  while ((n = std::fread(buffer.data(), 1, buffer.size(), file)) > 0) {
    sum.add(buffer.data(), n);
  }
  std::fclose(file);
  return sum;
}

// Of a stream to its end. Closes it.
Checksum of_stream(URL url) {
  Checksum sum;
  EXPECT_NE(url, nullptr) << url_strerror(url_errno);
  if (url == nullptr) return sum;
  std::vector<char> buffer(100000);
  int32_t n = 0;
  while ((n = url_read(url, buffer.data(), static_cast<int32_t>(buffer.size()))) > 0) {
    sum.add(buffer.data(), static_cast<size_t>(n));
  }
  EXPECT_EQ(n, 0);
  EXPECT_EQ(errno, 0);
  url_close(url);
  return sum;
}

URL open_whole(const std::string& url) {
  return url_http_open(url.c_str());
}

URL open_from(const std::string& url, int64_t offset) {
  return url_http_open_with_offset(url.c_str(), offset);
}

// One real server; the test's parameter is the variable with its "http://host:port".
class RealServer : public testing::TestWithParam<const char*> {
 protected:
  void TearDown() override {
    url_http_proxy_host = nullptr;
    url_user_agent = nullptr;
  }
  std::string url(const std::string& path) const { return setting(GetParam()) + path; }
};

TEST_P(RealServer, ServesFilesOfAllSizesByteForByte) {
  for (const char* const name : {"empty", "byte", "page.txt", "big"}) {
    const URL stream = open_whole(url(std::string("/") + name));
    ASSERT_NE(stream, nullptr) << name << ": " << url_strerror(url_errno);
    const Checksum expected = of_file(name);
    EXPECT_EQ(stream->readlimit, static_cast<uint32_t>(expected.length)) << name;
    EXPECT_EQ(of_stream(stream), expected) << name;
  }
}

TEST_P(RealServer, ServesLinesAndBytes) {
  const URL lines = open_whole(url("/page.txt"));
  ASSERT_NE(lines, nullptr);
  Checksum by_line;
  char line[300];
  while (url_gets(lines, line, sizeof line) != nullptr) {
    by_line.add(line, std::char_traits<char>::length(line));
  }
  url_close(lines);
  EXPECT_EQ(by_line, of_file("page.txt"));

  const URL bytes = open_whole(url("/page.txt"));
  ASSERT_NE(bytes, nullptr);
  Checksum by_byte;
  int32_t byte = 0;
  while ((byte = url_fgetc(bytes)) != -1) {
    const char c = static_cast<char>(byte);
    by_byte.add(&c, 1);
  }
  url_close(bytes);
  EXPECT_EQ(by_byte, of_file("page.txt"));
}

TEST_P(RealServer, AMissingFileIsNotFound) {
  errno = 0;
  EXPECT_EQ(open_whole(url("/missing")), nullptr);
  EXPECT_EQ(url_errno, URLERR_HTTP_NOT_FOUND);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(open_from(url("/missing"), 5), nullptr);
  EXPECT_EQ(url_errno, URLERR_HTTP_NOT_FOUND);
}

TEST_P(RealServer, ARedirectIsNotFollowed) {
  // A folder without its slash gets a 301.
  EXPECT_EQ(open_whole(url("/folder")), nullptr);
  EXPECT_EQ(url_errno, ENOENT);
  EXPECT_EQ(errno, ENOENT);
}

TEST_P(RealServer, ForwardSeeksReadTheRest) {
  const URL stream = open_whole(url("/big"));
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(url_seek(stream, 1000000, SEEK_SET), 0);
  EXPECT_EQ(of_stream(stream), of_file("big", 1000000));
}

TEST_P(RealServer, TheOffsetVariantReadsFromTheStart) {
  EXPECT_EQ(of_stream(open_from(url("/page.txt"), 0)), of_file("page.txt"));
}

INSTANTIATE_TEST_SUITE_P(All, RealServer,
                         testing::Values("GW_NGINX", "GW_LIGHTTPD", "GW_PYTHON"));

// Servers that answer a range with 206. (That of Python ignores it.)
using RangeServer = RealServer;

void expect_rest(const std::string& url, const std::string& name, int64_t offset) {
  const URL stream = open_from(url, offset);
  ASSERT_NE(stream, nullptr) << offset << ": " << url_strerror(url_errno);
  EXPECT_EQ(stream->readlimit, static_cast<uint32_t>(of_file(name).length))
      << "offset and rest";
  EXPECT_EQ(of_stream(stream), of_file(name, offset)) << offset;
}

TEST_P(RangeServer, AnOffsetGivesTheRestOfTheFile) {
  for (const int64_t offset : {1, 4096, 150000, 299999}) {
    expect_rest(url("/medium"), "medium", offset);
  }
  // nginx takes the closed sending side for a client that has gone: it breaks off once a
  // body has filled the socket's buffers.
  if (std::string(GetParam()) == "GW_NGINX") return;
  const int64_t length = of_file("big").length;
  for (const int64_t offset : {int64_t{1}, length / 2, length - 1}) {
    expect_rest(url("/big"), "big", offset);
  }
}

TEST_P(RangeServer, AnOffsetPastTheEndIsRefused) {
  EXPECT_EQ(open_from(url("/page.txt"), int64_t{1} << 40), nullptr);  // 416
  EXPECT_EQ(url_errno, ENOENT);
}

TEST_P(RangeServer, ABodyWithoutContentLengthIsReadToItsEnd) {
  const URL stream = open_whole(url("/dynamic"));
  ASSERT_NE(stream, nullptr) << url_strerror(url_errno);
  EXPECT_EQ(stream->readlimit, static_cast<uint32_t>(URL_NO_READLIMIT));
  EXPECT_EQ(of_stream(stream), of_file("dynamic.expected"));
}

INSTANTIATE_TEST_SUITE_P(All, RangeServer, testing::Values("GW_NGINX", "GW_LIGHTTPD"));

// A real proxy before each of the servers.
using RealProxy = RealServer;

TEST_P(RealProxy, FetchesFilesByteForByte) {
  const std::string port = setting("GW_PROXY_PORT");
  url_http_proxy_host = "127.0.0.1";
  url_http_proxy_port = static_cast<uint16_t>(std::stoi(port));
  url_user_agent = "groundwork-test";
  for (const char* const name : {"empty", "byte", "page.txt", "big"}) {
    EXPECT_EQ(of_stream(open_whole(url(std::string("/") + name))), of_file(name)) << name;
  }
  EXPECT_EQ(open_whole(url("/missing")), nullptr);
  EXPECT_EQ(url_errno, URLERR_HTTP_NOT_FOUND);
}

INSTANTIATE_TEST_SUITE_P(All, RealProxy,
                         testing::Values("GW_NGINX", "GW_LIGHTTPD", "GW_PYTHON"));

}  // namespace
