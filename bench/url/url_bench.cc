// Streams: lines of files against the system calls and the C library's readers; HTTP
// against libcurl and a socket, with a server in a process of its own on loopback.
//
// SPDX-License-Identifier: MIT

#include <groundwork/url.h>

#include <arpa/inet.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/job.h"

using namespace groundwork::bench;

namespace {

constexpr int kLines = 1000;
constexpr int kPiece = 16384;  // bytes that libcurl hands over at most
constexpr int kBytes = 4 << 20;

char buffer[kPiece];

// --- lines of a file ---

// A file of lines about as long as asked for, or all of one length.
class LineFile {
 public:
  LineFile(size_t length, bool records) {
    char name[] = "/tmp/groundwork-bench-XXXXXX";
    const int fd = mkstemp(name);
    path_ = name;
    std::string content;
    uint32_t random = 1;
    for (int i = 0; i < kLines; ++i) {
      random = random * 1664525 + 1013904223;
      lengths_.push_back(records ? length : length / 2 + random / 65536 % (length + 1));
      content += std::string(lengths_.back() - 1, 'x') + "\n";
    }
    if (write(fd, content.data(), content.size()) < 0) std::abort();
    close(fd);
  }
  ~LineFile() { unlink(path_.c_str()); }
  LineFile(const LineFile&) = delete;
  LineFile& operator=(const LineFile&) = delete;

  const char* path() const { return path_.c_str(); }
  const std::vector<size_t>& lengths() const { return lengths_; }

 private:
  std::string path_;
  std::vector<size_t> lengths_;
};

template <bool records>
void lines_ours(State& state) {
  const LineFile file(static_cast<size_t>(state.range(0)), records);
  const URL url = url_file_open(file.path());
  uint32_t bytes = 0;
  for (auto _ : state) {
    url_seek(url, 0, SEEK_SET);
    while (url_gets(url, buffer, sizeof buffer) != nullptr) DoNotOptimize(buffer[0]);
    bytes = url->nread;
  }
  url_close(url);
  report(state, kLines, bytes);
}

// Knows beforehand how long each line is.
template <bool records>
void lines_bare(State& state) {
  const LineFile file(static_cast<size_t>(state.range(0)), records);
  const int fd = open(file.path(), O_RDONLY);
  uint32_t bytes = 0;
  for (auto _ : state) {
    off_t position = 0;
    for (const size_t length : file.lengths()) {
      position += pread(fd, buffer, length, position);
      lseek(fd, position, SEEK_SET);
    }
    bytes = static_cast<uint32_t>(position);
  }
  close(fd);
  report(state, kLines, bytes);
}

template <bool records, bool getline_too>
void lines_stdio(State& state) {
  const LineFile file(static_cast<size_t>(state.range(0)), records);
  std::FILE* const stream = std::fopen(file.path(), "r");
  char* line = nullptr;
  size_t room = 0;
  uint32_t bytes = 0;
  for (auto _ : state) {
    std::rewind(stream);
    bytes = 0;
    if constexpr (getline_too) {
      ssize_t length;
      while ((length = getline(&line, &room, stream)) > 0) {
        bytes += static_cast<uint32_t>(length);
      }
    } else {
      while (std::fgets(buffer, sizeof buffer, stream) != nullptr) {
        bytes += static_cast<uint32_t>(std::strlen(buffer));
      }
    }
  }
  std::free(line);
  std::fclose(stream);
  report(state, kLines, bytes);
}

template <bool records>
void register_lines(const char* name) {
  for (const int length : {20, 200, 2000}) {
    job(name, "ours", lines_ours<records>)->Arg(length);
    job(name, "pread+lseek", lines_bare<records>)->Arg(length);
    job(name, "fgets", lines_stdio<records, false>)->Arg(length);
    job(name, "getline", lines_stdio<records, true>)->Arg(length);
  }
}

// --- HTTP ---

bool send_all(int fd, const char* bytes, size_t size, int flags) {
  while (size > 0) {
    const ssize_t sent = send(fd, bytes, size, flags | MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes += sent;
    size -= static_cast<size_t>(sent);
  }
  return true;
}

// "GET /size HTTP/1.x": that many bytes, then for HTTP/1.0 the end.
void serve(int connection) {
  static const std::string body(1 << 20, 'x');
  char request[4096];
  for (;;) {
    const ssize_t count = recv(connection, request, sizeof request - 1, 0);
    if (count <= 0) return;
    request[count] = '\0';
    size_t left = std::strtoul(request + sizeof "GET /" - 1, nullptr, 10);
    const std::string head =
        "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n"
        "Content-Length: " +
        std::to_string(left) + "\r\n\r\n";
    if (!send_all(connection, head.data(), head.size(), MSG_MORE)) return;
    while (left > 0) {
      const size_t piece = left < body.size() ? left : body.size();
      if (!send_all(connection, body.data(), piece, 0)) return;
      left -= piece;
    }
    if (std::strstr(request, "HTTP/1.0") != nullptr) return;
  }
}

// The server's address; started when first asked for, ended with this process.
const sockaddr_in& server() {
  static sockaddr_in address{};
  if (address.sin_port != 0) return address;
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener, generic, size) != 0 || listen(listener, 16) != 0) std::abort();
  getsockname(listener, generic, &size);
  if (fork() == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) {
      const int connection = accept(listener, nullptr, nullptr);
      serve(connection);
      close(connection);
    }
  }
  close(listener);
  return address;
}

std::string url_of(int64_t size) {
  return "http://127.0.0.1:" + std::to_string(ntohs(server().sin_port)) + "/" +
         std::to_string(size);
}

// A connected socket on which the request was sent.
int request(int64_t size) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(fd, reinterpret_cast<const sockaddr*>(&server()), sizeof(sockaddr_in)) != 0) {
    std::abort();
  }
  const std::string text =
      "GET /" + std::to_string(size) + " HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n";
  send_all(fd, text.data(), text.size(), 0);
  return fd;
}

uint32_t get_ours(const std::string& url) {
  const URL stream = url_http_open(url.c_str());
  uint32_t bytes = 0;
  int32_t count;
  while ((count = url_read(stream, buffer, kPiece)) > 0) {
    bytes += static_cast<uint32_t>(count);
  }
  url_close(stream);
  return bytes;
}

size_t take(char* bytes, size_t size, size_t count, void* sum) {
  std::memcpy(buffer, bytes, size * count);
  *static_cast<uint32_t*>(sum) += static_cast<uint32_t>(size * count);
  return size * count;
}

uint32_t get_curl(CURL* handle, const std::string& url) {
  uint32_t bytes = 0;
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, take);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &bytes);
  curl_easy_perform(handle);
  return bytes;
}

template <typename Get>
void get(State& state, Get bytes_of) {
  const std::string url = url_of(state.range(0));
  uint32_t bytes = bytes_of(url);
  for (auto _ : state) bytes = bytes_of(url);
  report(state, 1, bytes);
}

void get_with_ours(State& state) {
  get(state, get_ours);
}

void get_reused_curl(State& state) {
  CURL* const handle = curl_easy_init();
  get(state, [handle](const std::string& url) { return get_curl(handle, url); });
  curl_easy_cleanup(handle);
}

void get_new_curl(State& state) {
  get(state, [](const std::string& url) {
    CURL* const handle = curl_easy_init();
    const uint32_t bytes = get_curl(handle, url);
    curl_easy_cleanup(handle);
    return bytes;
  });
}

// One connection, one segment out, reading to the end, close.
void get_bare(State& state) {
  get(state, [&state](const std::string&) {
    const int fd = request(state.range(0));
    uint32_t bytes = 0;
    ssize_t count;
    while ((count = recv(fd, buffer, kPiece, 0)) > 0) bytes += static_cast<uint32_t>(count);
    close(fd);
    return bytes;
  });
}

void bytes_ours(State& state) {
  const std::string url = url_of(kBytes);
  uint32_t sum = 0;
  for (auto _ : state) {
    const URL stream = url_http_open(url.c_str());
    sum = 0;
    int32_t byte;
    while ((byte = url_fgetc(stream)) != -1) sum += static_cast<uint32_t>(byte);
    url_close(stream);
  }
  report(state, kBytes, sum);
}

void bytes_getc(State& state) {
  uint32_t sum = 0;
  for (auto _ : state) {
    std::FILE* const stream = fdopen(request(kBytes), "rb");
    while (std::fgets(buffer, sizeof buffer, stream) != nullptr && buffer[0] != '\r') {
    }
    sum = 0;
    int byte;
    while ((byte = getc_unlocked(stream)) != EOF) sum += static_cast<uint32_t>(byte);
    std::fclose(stream);
  }
  report(state, kBytes, sum);
}

}  // namespace

void groundwork::bench::register_jobs() {
  register_lines<true>("lines.records");
  register_lines<false>("lines");
  for (const int64_t size : {1 << 10, 100 << 10, 100 << 20}) {
    job("http.get", "ours", get_with_ours)->Arg(size);
    job("http.get", "curl, reused", get_reused_curl)->Arg(size);
    job("http.get", "curl, new", get_new_curl)->Arg(size);
    job("http.get", "floor", get_bare)->Arg(size);
  }
  job("http.fgetc", "ours", bytes_ours);
  job("http.fgetc", "getc_unlocked", bytes_getc);
}
