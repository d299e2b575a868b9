// Streams: files, sockets, HTTP from a server of the test's own.
//
// SPDX-License-Identifier: MIT

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <groundwork/url.h>

#include "faults/sweep.h"
#include "faults/working_directory.h"
#include "support/uncounted_allocations.h"
#include "url/scripted_server.h"

using namespace faults;

namespace {

constexpr char kText[] = "first line\nsecond line\nthe rest of it\n";
constexpr int32_t kLength = sizeof kText - 1;

void close_stream(Pass& pass, URL url) {
  errno = 77;
  int kept = 0;
  {
    const Faults faults(pass);
    url_close(url);
    kept = errno;
  }
  EXPECT_EQ(kept, 77);
}

// --- Files.

// Null, with both error variables set, exactly when there was no memory or no descriptor.
// The stream has no limit if its size could not be determined.
URL open_file(Pass& pass, const WorkingDirectory& directory, URL (*open)(const char*)) {
  directory.write("file", kText);
  const Since since(pass);
  url_errno = 0;
  const URL url = faulty(pass, [&] { return open("file"); });
  const bool is_refused = since.struck(Call::kOpen, Call::kAllocation);
  EXPECT_EQ(url == nullptr, is_refused);
  if (url == nullptr) {
    EXPECT_NE(url_errno, URLERR_NONE);
    return nullptr;
  }
  if (since.struck(Call::kLseek)) {
    url_set_readlimit(url, -1);
    url_rewind(url);
  } else {
    EXPECT_EQ(url->readlimit, static_cast<uint32_t>(kLength));
  }
  return url;
}

void read_file(Pass& pass) {
  const WorkingDirectory directory;
  const URL url = open_file(pass, directory, url_file_open);
  if (url == nullptr) return;
  size_t position = 0;
  for (const auto read : {url_read, url_safe_read, url_nread}) {
    char buffer[8] = {};
    const Since since(pass);
    url_errno = 0;
    const int32_t count = faulty(pass, [&] { return read(url, buffer, 8); });
    const bool is_struck = since.struck(Call::kRead);
    const bool is_retried = read != url_read && pass.error() == EINTR;
    const bool is_collected = read == url_nread && pass.kind() > Effect::kEnd;
    if (!is_struck || is_retried || is_collected) {
      EXPECT_EQ(count, 8);
    } else if (pass.kind() == Effect::kError && pass.error() != -1) {
      EXPECT_EQ(count, -1);
      EXPECT_NE(url_errno, URLERR_NONE);
    }
    if (count > 0) {
      const auto length = static_cast<size_t>(count);
      EXPECT_EQ(std::string(buffer, length), std::string(kText).substr(position, length));
      position += length;
    }
    EXPECT_EQ(url->nread, position);
  }
  const Since since(pass);
  const int32_t byte = faulty(pass, [&] { return url_fgetc(url); });
  if (!since.struck(Call::kRead)) {
    EXPECT_EQ(byte, kText[position]);
  } else if (pass.kind() <= Effect::kEnd) {
    EXPECT_EQ(byte, -1);
  }
  close_stream(pass, url);
}

void read_lines(Pass& pass) {
  const WorkingDirectory directory;
  const URL url = open_file(pass, directory, url_file_open);
  if (url == nullptr) return;
  char line[32] = {};
  const Since since(pass);
  // A file that cannot be examined is read byte by byte.
  const char* const got = faulty(pass, [&] { return url_gets(url, line, sizeof line); });
  if (!since.struck(Call::kRead)) {
    EXPECT_STREQ(got, "first line\n");
  }
  if (!since.struck(Call::kRead, Call::kLseek)) {
    const int32_t length =
        faulty(pass, [&] { return url_readline(url, line, sizeof line); });
    if (!since.struck(Call::kRead)) {
      EXPECT_EQ(length, 11);
      EXPECT_STREQ(line, "second line");
    }
  }
  // However a line was read, it is terminated, and so is the next.
  for (int i = 0; i < 100; ++i) {
    if (faulty(pass, [&] { return url_gets(url, line, sizeof line); }) == nullptr) break;
  }
  close_stream(pass, url);
}

// From a pipe each byte is a call.
void read_lines_of_pipe(Pass& pass) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(write(ends[1], kText, kLength), kLength);
  close(ends[1]);
  const std::string name = "/dev/fd/" + std::to_string(ends[0]);
  const URL url = faulty(pass, [&] { return url_file_open(name.c_str()); });
  close(ends[0]);
  if (url == nullptr) {
    EXPECT_NE(pass.struck(Call::kOpen, Call::kAllocation), 0);
    return;
  }
  url_set_readlimit(url, -1);
  char line[32] = {};
  const char* const got = faulty(pass, [&] { return url_gets(url, line, sizeof line); });
  if (pass.struck(Call::kRead) == 0) {
    EXPECT_STREQ(got, "first line\n");
  }
  for (int i = 0; i < 3; ++i) {
    const int32_t length =
        faulty(pass, [&] { return url_readline(url, line, sizeof line); });
    EXPECT_GE(length, 0);
    EXPECT_LT(length, 32);
  }
  close_stream(pass, url);
}

void move_in_file(Pass& pass) {
  const WorkingDirectory directory;
  const URL url = open_file(pass, directory, url_file_open);
  if (url == nullptr) return;
  Since since(pass);
  const int64_t moved = faulty(pass, [&] { return url_seek(url, 6, SEEK_SET); });
  EXPECT_EQ(moved, since.struck(Call::kLseek) ? -1 : 6);
  const Since telling(pass);
  const int64_t position = faulty(pass, [&] { return url_tell(url); });
  EXPECT_EQ(position, telling.struck(Call::kLseek) ? -1 : moved == -1 ? 0 : 6);
  // Where it cannot move, it reads.
  const Since skipping(pass);
  faulty(pass, [&] {
    url_skip(url, 5);
    return 0;
  });
  EXPECT_TRUE(url->nread == 5 || skipping.struck(Call::kRead));
  faulty(pass, [&] {
    url_set_readlimit(url, 3);
    url_rewind(url);
    return 0;
  });
  EXPECT_EQ(url->readlimit, 3u);
  close_stream(pass, url);
}

void dump_file(Pass& pass) {
  const WorkingDirectory directory;
  const URL url = open_file(pass, directory, url_file_open);
  if (url == nullptr) return;
  int32_t length = -7;
  const Since since(pass);
  void* const dump = faulty(pass, [&] { return url_dump(url, kLength, &length); });
  if (since.struck(Call::kAllocation)) {
    EXPECT_EQ(dump, nullptr);
    EXPECT_EQ(length, 0);
  } else if (!since.struck(Call::kRead) || pass.kind() > Effect::kEnd) {
    EXPECT_EQ(length, kLength);
  }
  EXPECT_EQ(dump == nullptr, length == 0);
  if (length > 0) {
    EXPECT_EQ(std::memcmp(dump, kText, static_cast<size_t>(length)), 0);
  }
  std::free(dump);  // also that of a failed first read, which has the length -1
  close_stream(pass, url);
}

// --- The core.

int32_t is_ours(const char* url) {
  return std::strncmp(url, "ours:", 5) == 0 ? 1 : 0;
}

URL open_ours(const char* url) {
  return url_file_open(url + 5);
}

URL_module our_module = {99, is_ours, nullptr, open_ours, nullptr};

// The list of modules only grows.
void add_modules(Pass& pass) {
  static bool is_done = false;
  if (is_done) return;
  is_done = true;
  const Faults faults(pass);
  url_add_modules(&URL_module_file, &URL_module_http, static_cast<URL_module*>(nullptr));
  url_add_module(&our_module);
}

void open_by_module(Pass& pass) {
  add_modules(pass);
  const WorkingDirectory directory;
  EXPECT_EQ(faulty(pass, [] { return url_check_type("ours:file"); }), 99);
  EXPECT_EQ(faulty(pass, [] { return url_check_type("http://host/"); }), URL_HTTP);
  const URL url =
      open_file(pass, directory, [](const char*) { return url_open("ours:file"); });
  if (url != nullptr) close_stream(pass, url);
}

void use_records(Pass& pass) {
  const URL url = faulty(pass, [] { return alloc_url(100); });
  EXPECT_EQ(url == nullptr, pass.struck(Call::kAllocation) != 0);
  if (url == nullptr) {
    EXPECT_EQ(url_errno, ENOMEM);
  } else {
    EXPECT_EQ(url->readlimit, URL_NO_READLIMIT);
    close_stream(pass, url);  // has no `close` slot: printed, and left
    std::free(url);
  }
  close_stream(pass, nullptr);
  EXPECT_STREQ(faulty(pass, [] { return url_strerror(URLERR_TOO_LONG); }), "URL too long");
}

void expand_home(Pass& pass) {
  {
    const test::UncountedAllocations uncounted;  // the environment keeps the text
    setenv("HOME", "/home/u", 1);
  }
  EXPECT_STREQ(faulty(pass, [] { return url_expand_home_dir("~/a"); }), "/home/u/a");
  EXPECT_STREQ(faulty(pass, [] { return url_unexpand_home_dir("/home/u/a"); }), "~/a");
  // Without memory the C library's look-up may leak some of its own blocks.
  if (pass.is_of_memory()) return;
  const std::string expanded = faulty(pass, [] { return url_expand_home_dir("~root/a"); });
  EXPECT_EQ(expanded, pass.struck(Call::kGetpwnam) ? "~root/a" : "/root/a");
}

// --- Sockets.

// Waits for something to read. False if nothing comes, immediately if a fault has kept the
// client from sending a whole request: it then waits for a response.
bool is_readable(int fd) {
  pollfd wait{fd, POLLIN, 0};
  for (int tries = 0; tries < 4000; ++tries) {
    const bool is_hopeless = strikes(Call::kSend) + strikes(Call::kVsnprintf) != 0;
    if (poll(&wait, 1, 5) > 0) return true;
    if (is_hopeless) return false;
  }
  return false;
}

// Responds to a complete request, and closes the connection of an incomplete one.
void serve(test::Connection& connection, const std::string& reply) {
  std::string request;
  char part[1024];
  while (request.find("\r\n\r\n") == request.npos) {
    if (!is_readable(connection.fd())) return;
    const ssize_t count = recv(connection.fd(), part, sizeof part, 0);
    if (count <= 0) return;
    request.append(part, static_cast<size_t>(count));
  }
  connection.send(reply);
}

test::ScriptedServer& server() {
  static test::ScriptedServer the_server([](test::Connection& connection) {
    serve(connection, "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\nContent-Length: " +
                          std::to_string(kLength) + "\r\n\r\n" + kText);
  });
  return the_server;
}

// Connected and blocking, or -1.
int connect_socket(Pass& pass) {
  const int port = server().port();
  uint32_t address = 0;
  const Since since(pass);
  const int fd = faulty(pass, [&] { return open_socket("127.0.0.1", port, &address); });
  if (fd == -1) {
    EXPECT_TRUE(pass.struck());
    return -1;
  }
  EXPECT_FALSE(since.struck(Call::kSocket, Call::kConnect, Call::kPoll, Call::kIoctl,
                            Call::kGetsockopt));
  EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  return fd;
}

void use_socket(Pass& pass) {
  const int fd = connect_socket(pass);
  if (fd == -1) return;
  const Since sending(pass);
  const int64_t sent = faulty(pass, [&] { return socket_write(fd, "GET /\r\n\r\n", 9); });
  if (!sending.struck(Call::kSend, Call::kWrite)) {
    EXPECT_EQ(sent, 9);
  } else if (pass.kind() == Effect::kError && pass.error() > 0 &&
             pass.error() != ENOTSOCK) {
    EXPECT_EQ(sent, -1);
  }
  const int shut = faulty(pass, [&] { return socket_shutdown(fd, SHUT_WR); });
  EXPECT_EQ(shut, pass.struck(Call::kShutdown) ? -1 : 0);
  close(fd);
}

void use_stream_of_socket(Pass& pass) {
  const int fd = connect_socket(pass);
  if (fd == -1) return;
  FILE* const stream = faulty(pass, [&] { return socket_fdopen(fd, "rb"); });
  EXPECT_EQ(stream == nullptr, pass.struck(Call::kFdopen, Call::kAllocation) != 0);
  if (stream == nullptr) {
    close(fd);
    return;
  }
  ASSERT_EQ(write(fd, "GET /\r\n\r\n", 9), 9);
  char line[64] = {};
  const char* const got = faulty(pass, [&] { return socket_fgets(line, 64, stream); });
  if (pass.struck(Call::kFgets)) {
    EXPECT_EQ(got, nullptr);
  } else {
    EXPECT_STREQ(got, "HTTP/1.0 200 OK\r\n");
    const int byte = faulty(pass, [&] { return socket_fgetc(stream); });
    EXPECT_EQ(byte, pass.struck(Call::kGetc) ? EOF : 'C');
    const Since since(pass);
    const int64_t count = faulty(pass, [&] { return socket_fread(line, 4, stream); });
    if (!since.struck(Call::kFread)) {
      EXPECT_EQ(count, 4);
    } else {
      EXPECT_LT(count, 4);
    }
  }
  const int result = faulty(pass, [&] { return socket_fclose(stream); });
  EXPECT_EQ(result, pass.struck(Call::kFclose) ? EOF : 0);
}

void write_to_stream(Pass& pass) {
  const WorkingDirectory directory;
  directory.write("file", "");
  const int fd = open("file", O_WRONLY | O_CLOEXEC);
  FILE* const stream = fdopen(fd, "wb");
  const int64_t count = faulty(pass, [&] { return socket_fwrite("text", 4, stream); });
  if (pass.struck(Call::kFwrite)) {
    EXPECT_LT(count, 4);
  } else {
    EXPECT_EQ(count, 4);
  }
  const int flushed = faulty(pass, [&] { return socket_fflush(stream); });
  EXPECT_EQ(flushed, pass.struck(Call::kFflush) ? EOF : 0);
  std::fclose(stream);
}

// --- HTTP.

// Whether the response's headers may have been cut short, so that the body begins
// elsewhere.
bool is_cut_short(const Pass& pass) {
  return pass.struck(Call::kFgets) != 0;
}

URL open_http(Pass& pass, URL (*open)(const char*)) {
  const std::string name = server().url();
  url_errno = 0;
  errno = 0;
  const URL url = faulty(pass, [&] { return open(name.c_str()); });
  if (url == nullptr) {
    EXPECT_TRUE(pass.struck());
    EXPECT_NE(url_errno, URLERR_NONE);
    EXPECT_NE(url_errno, 0);
    return nullptr;
  }
  EXPECT_EQ(pass.struck(Call::kSocket, Call::kConnect, Call::kPoll, Call::kFdopen), 0);
  if (!is_cut_short(pass)) {
    EXPECT_EQ(url->readlimit, static_cast<uint32_t>(kLength));
  }
  return url;
}

void read_http(Pass& pass) {
  const URL url = open_http(pass, url_http_open);
  if (url == nullptr) return;
  const bool is_whole = !is_cut_short(pass);
  EXPECT_GT(faulty(pass, [&] { return url_internal_sock(url); }), 2);
  std::string text;
  char buffer[16];
  const Since since(pass);
  for (int i = 0; i < 200; ++i) {
    const int32_t count = faulty(pass, [&] { return url_read(url, buffer, 16); });
    EXPECT_GE(count, 0);
    if (count <= 0) break;
    text.append(buffer, static_cast<size_t>(count));
  }
  if (is_whole && (!since.struck(Call::kFread) || pass.kind() > Effect::kEnd)) {
    EXPECT_EQ(text, kText);
  } else if (is_whole) {
    EXPECT_EQ(text, std::string(kText).substr(0, text.size()));
  }
  close_stream(pass, url);
}

// A large read goes past the buffer of the stream.
void read_much_of_http(Pass& pass) {
  static const std::string body = [] {
    std::string text;
    for (int i = 0; text.size() < 30000; ++i) text += std::to_string(i) + " ";
    return text;
  }();
  static test::ScriptedServer large_server([](test::Connection& connection) {
    serve(connection, "HTTP/1.0 200 OK\r\n\r\n" + body);
  });
  const std::string name = large_server.url();
  std::vector<char> buffer(40000);
  const URL url = faulty(pass, [&] { return url_http_open(name.c_str()); });
  if (url == nullptr) return;
  const bool is_whole = !is_cut_short(pass);
  const Since since(pass);
  const int32_t count = faulty(pass, [&] { return url_read(url, buffer.data(), 40000); });
  ASSERT_GE(count, 0);
  const std::string text(buffer.data(), static_cast<size_t>(count));
  if (is_whole) {
    EXPECT_TRUE(body.starts_with(text));
    if (!since.struck(Call::kRecv, Call::kFread)) {
      EXPECT_EQ(text.size(), body.size());
    }
  }
  close_stream(pass, url);
}

void read_lines_of_http(Pass& pass) {
  add_modules(pass);
  const URL url = open_http(pass, url_open);
  if (url == nullptr) return;
  const bool is_whole = !is_cut_short(pass);
  char line[32] = {};
  const Since since(pass);
  const char* const got = faulty(pass, [&] { return url_gets(url, line, sizeof line); });
  if (is_whole) {
    if (since.struck(Call::kFgets)) {
      EXPECT_EQ(got, nullptr);
    } else {
      EXPECT_STREQ(got, "first line\n");
      EXPECT_EQ(faulty(pass, [&] { return url_fgetc(url); }), 's');
      EXPECT_EQ(faulty(pass, [&] { return url_readline(url, line, sizeof line); }), 10);
      EXPECT_STREQ(line, "econd line");
    }
  }
  close_stream(pass, url);
}

// The first byte is asked of a stream whose buffer has none.
void read_bytes_of_http(Pass& pass) {
  static test::ScriptedServer slow_server([](test::Connection& connection) {
    serve(connection, "HTTP/1.0 200 OK\r\n\r\n");
    usleep(300);
    connection.send("ab");
  });
  const std::string name = slow_server.url();
  const URL url = faulty(pass, [&] { return url_http_open(name.c_str()); });
  if (url == nullptr) return;
  const bool is_whole = !is_cut_short(pass);
  for (const char expected : {'a', 'b'}) {
    const int32_t byte = faulty(pass, [&] { return url_fgetc(url); });
    if (is_whole && pass.struck(Call::kUflow) == 0) {
      EXPECT_EQ(byte, expected);
    }
  }
  close_stream(pass, url);
}

void open_with_offset(Pass& pass) {
  const std::string name = server().url();
  const URL url = faulty(pass, [&] { return url_http_open_with_offset(name.c_str(), 10); });
  EXPECT_STREQ(url_user_agent,
               pass.struck(Call::kAllocation) && url == nullptr ? url_user_agent : "app");
  url_user_agent = nullptr;
  if (url == nullptr) {
    EXPECT_TRUE(pass.struck());
    EXPECT_NE(url_errno, URLERR_NONE);
    return;
  }
  if (!is_cut_short(pass)) {
    EXPECT_EQ(url->readlimit, static_cast<uint32_t>(kLength) + 10);
  }
  close_stream(pass, url);
}

void open_by_proxy(Pass& pass) {
  url_http_proxy_host = "127.0.0.1";
  url_http_proxy_port = server().port();
  const URL url = faulty(pass, [] { return url_http_open("http://far.test/a"); });
  url_http_proxy_host = nullptr;
  if (url == nullptr) {
    EXPECT_TRUE(pass.struck());
    return;
  }
  char buffer[64];
  const Since since(pass);
  const int32_t count = faulty(pass, [&] { return url_nread(url, buffer, 64); });
  if (!is_cut_short(pass) && !since.struck(Call::kFread)) {
    EXPECT_EQ(count, kLength);
  }
  close_stream(pass, url);
}

const Scenarios scenarios(
    "url",
    {
        {"ReadAFile",
         {"url_file_open", "url_read", "url_safe_read", "url_nread", "url_fgetc",
          "url_close"},
         read_file},
        {"ReadLines", {"url_gets", "url_readline"}, read_lines},
        {"ReadLinesOfAPipe", {}, read_lines_of_pipe},
        {"MoveInAFile",
         {"url_seek", "url_tell", "url_skip", "url_rewind", "url_set_readlimit"},
         move_in_file},
        {"DumpAFile", {"url_dump"}, dump_file},
        {"OpenByModule",
         {"url_open", "url_check_type", "url_add_module", "url_add_modules"},
         open_by_module},
        {"Records", {"alloc_url", "url_strerror"}, use_records},
        {"HomeDirectory", {"url_expand_home_dir", "url_unexpand_home_dir"}, expand_home},
        {"Socket", {"open_socket", "socket_write", "socket_shutdown"}, use_socket},
        {"StreamOfASocket",
         {"socket_fdopen", "socket_fgets", "socket_fgetc", "socket_fread", "socket_fclose"},
         use_stream_of_socket},
        {"WriteToAStream", {"socket_fwrite", "socket_fflush"}, write_to_stream},
        {"ReadHttp", {"url_http_open", "url_internal_sock"}, read_http},
        {"ReadMuchOfHttp", {}, read_much_of_http, 8},
        {"ReadLinesOfHttp", {}, read_lines_of_http},
        {"ReadBytesOfHttp", {}, read_bytes_of_http},
        {"HttpFromAnOffset", {"url_http_open_with_offset"}, open_with_offset},
        {"HttpByProxy", {}, open_by_proxy},
    });

}  // namespace
