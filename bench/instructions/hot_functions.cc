// Calls each hot function some times between two marks for callgrind, which counts the
// instructions of each shared object. bench/instructions/run starts it and reads the
// counts.
//
// SPDX-License-Identifier: MIT

#include <groundwork/groundwork.h>
#include <groundwork/url.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

// The library seeds its hashes with what this gives for AT_RANDOM. One seed for all runs:
// the length of a probe depends on it.
extern "C" unsigned long getauxval(unsigned long) {
  static constexpr unsigned char kSeed[16] = {1, 2,  3,  4,  5,  6,  7,  8,
                                              9, 10, 11, 12, 13, 14, 15, 16};
  return reinterpret_cast<unsigned long>(kSeed);
}

namespace {

// Runs `operation` once so that everything is bound and warm, and then `count` times. The
// figure shown is that of one of `parts` pieces of each call.
template <typename Operation>
void measure(const char* name, int count, Operation operation, int parts = 1) {
  operation(0);
  const std::string mark = std::string(name) + " " + std::to_string(count * parts);
  CALLGRIND_ZERO_STATS;
  for (int i = 1; i <= count; ++i) operation(i);
  CALLGRIND_DUMP_STATS_AT(mark.c_str());
}

std::string folder;

std::string write_file(const char* name, const std::string& content) {
  const std::string path = folder + "/" + name;
  std::FILE* const file = std::fopen(path.c_str(), "w");
  if (file == nullptr ||
      std::fwrite(content.data(), 1, content.size(), file) != content.size()) {
    std::abort();
  }
  std::fclose(file);
  return path;
}

void strings() {
  g_debug_set_level2(G_LOG_WARNING);
  measure("log.suppressed", 1000, [](int i) { g_log(G_LOG_DEBUG, "x", i, "%d", i); });
  const std::string text(1000, 'x');
  measure("strdup.1000", 200, [&](int) { std::free(g_strdup(text.c_str())); });
  measure("printf.assignment", 200,
          [](int) { std::free(g_strdup_printf("%s=%s\n", "address", "192.168.0.1")); });
  measure("printf.numbers", 200, [](int) {
    std::free(g_strdup_printf("%d %u %x %5d %c %ld", -17, 42U, 255U, 9, 'c', 123456L));
  });
  measure("printf.measured", 200, [](int) {
    std::free(g_strdup_printf("%s:%d: %-8s [%5.2f] %lu", "probe", 7, "volt", 23.75, 99UL));
  });
  measure("printf.general", 200, [](int) { std::free(g_strdup_printf("%g", 3.25)); });
  std::string pieces = "piece number 1";
  for (int i = 2; i <= 100; ++i) pieces += ",piece number " + std::to_string(i);
  measure(
      "strsplit.piece", 20, [&](int) { g_strfreev(g_strsplit(pieces.c_str(), ",", 0)); },
      100);
}

void configuration() {
  constexpr int kKeys = 1000;
  std::string content = "[section]\n";
  for (int i = 0; i < kKeys; ++i) {
    content += "key" + std::to_string(i) + "=value" + std::to_string(i) + "\n";
  }
  const std::string path = write_file("conf", content);
  std::vector<std::string> keys;
  for (int i = 0; i < kKeys; ++i) keys.push_back("key" + std::to_string(i));
  std::vector<GConf*> open;
  measure(
      "conf.open.key", 3, [&](int) { open.push_back(g_conf_open(path.c_str())); }, kKeys);
  GConf* const conf = open.front();
  measure("conf.hit", kKeys - 1, [&](int i) {
    g_conf_read_string(conf, "section", keys[static_cast<size_t>(i)].c_str(), nullptr);
  });
  measure("conf.miss", 1000,
          [&](int) { g_conf_read_string(conf, "section", "missing", nullptr); });
  measure("conf.write", kKeys - 1, [&](int i) {
    g_conf_write_string(conf, "section", keys[static_cast<size_t>(i)].c_str(), "changed");
  });
  measure(
      "conf.sync.key", 3,
      [&](int i) {
        g_conf_write_int(conf, "section", "key0", i + 1000);
        g_conf_sync(conf);
      },
      kKeys);
}

void containers() {
  int value = 0;
  GList* list = nullptr;
  measure("list.prepend", 100, [&](int) { list = g_list_prepend(list, &value); });
  measure("list.append", 100, [&](int) { list = g_list_append(list, &value); });
  measure("list.find", 100, [&](int) { g_list_find(list, &list); });
  measure("list.foreach", 100, [&](int) {
    g_list_foreach(
        list, [](void*, void*) {}, nullptr);
  });

  GQueue* const queue = g_queue_new(nullptr, nullptr);
  measure("queue.pair", 500, [&](int) {
    g_queue_enqueue(queue, &value);
    g_queue_dequeue(queue, nullptr);
  });
  GFifo* const fifo = g_fifo_new(16);
  measure("fifo.pair", 500, [&](int) {
    g_fifo_put(fifo, &value);
    g_fifo_get(fifo);
  });
  GMutex* const mutex = g_thread_mutex_new();
  measure("mutex.pair", 500, [&](int) {
    g_thread_mutex_lock(mutex);
    g_thread_mutex_unlock(mutex);
  });
}

void hash_tables() {
  constexpr int kKeys = 1000;
  std::vector<std::string> texts;
  std::vector<int> numbers;
  for (int i = 0; i <= 2 * kKeys; ++i) {
    texts.push_back("key number " + std::to_string(i));
    numbers.push_back(i * 7919);
  }
  const auto run = [&](const char* kind, GHashFunc hash, GEqualFunc equal, auto key) {
    GHash* const table = g_hash_new(16, hash, equal, nullptr);
    const std::string prefix = std::string("hash.") + kind;
    measure((prefix + ".insert").c_str(), kKeys,
            [&](int i) { g_hash_insert(table, key(i), key(i)); });
    measure((prefix + ".hit").c_str(), kKeys, [&](int i) { g_hash_find(table, key(i)); });
    measure((prefix + ".miss").c_str(), kKeys - 1,
            [&](int i) { g_hash_find(table, key(kKeys + 1 + i)); });
  };
  run("string", g_hash_str, g_hash_str_equal,
      [&](int i) -> void* { return texts[static_cast<size_t>(i)].data(); });
  run("int", g_hash_int, g_hash_int_equal,
      [&](int i) -> void* { return &numbers[static_cast<size_t>(i)]; });
}

void ciphers() {
  static char bytes[4095];
  static char text[5600];
  static char back[4200];
  measure("base64.encode.4095", 20, [](int) { g_crypt_base64_encode(bytes, text, 4095); });
  measure("base64.decode.4095", 20, [](int) { g_crypt_base64_decode(text, back); });
  static char key[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  static char block[8];
  const auto run = [](const char* name, auto encrypt) {
    measure((std::string(name) + ".same").c_str(), 100,
            [encrypt](int) { encrypt(block, block, key); });
    measure((std::string(name) + ".changing").c_str(), 100, [encrypt](int i) {
      key[3] = static_cast<char>(2 * i);
      encrypt(block, block, key);
    });
  };
  run("d3des", g_crypt_d3des_encrypt);
  run("des", g_crypt_des_encrypt);
}

void files() {
  const std::string path = write_file("file", std::string(10000, 'x'));
  measure("file.read_buf.10000", 50, [&](int) {
    int64_t length;
    std::free(g_file_read_buf(path.c_str(), &length));
  });
}

// Serves one request with 100,000 bytes.
void* serve(void* listener) {
  const int connection =
      accept(static_cast<int>(reinterpret_cast<intptr_t>(listener)), nullptr, nullptr);
  char request[1000];
  if (recv(connection, request, sizeof request, 0) <= 0) std::abort();
  const std::string reply =
      "HTTP/1.0 200 OK\r\nContent-Length: 100000\r\n\r\n" + std::string(100000, 'x');
  if (send(connection, reply.data(), reply.size(), 0) < 0) std::abort();
  close(connection);
  return nullptr;
}

void streams() {
  std::string records;
  std::string lines;
  for (int i = 0; i < 300; ++i) {
    records += std::string(199, 'x') + "\n";
    lines += std::string(static_cast<size_t>(100 + i * 37 % 200), 'x') + "\n";
  }
  static char buffer[1000];
  const auto run = [](const char* name, const std::string& path) {
    const URL url = url_file_open(path.c_str());
    for (int i = 0; i < 5; ++i) url_gets(url, buffer, sizeof buffer);
    measure(name, 200, [url](int) { url_gets(url, buffer, sizeof buffer); });
    url_close(url);
  };
  run("url.gets.records", write_file("records", records));
  run("url.gets.lines", write_file("lines", lines));

  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  pthread_t server;
  if (bind(listener, generic, size) != 0 || listen(listener, 1) != 0 ||
      getsockname(listener, generic, &size) != 0 ||
      pthread_create(&server, nullptr, serve, reinterpret_cast<void*>(listener)) != 0) {
    std::abort();
  }
  const std::string name = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
  const URL url = url_http_open(name.c_str());
  if (url == nullptr) std::abort();
  measure("url.fgetc.http", 20000, [url](int) { url_fgetc(url); });
  url_close(url);
  pthread_join(server, nullptr);
}

std::atomic<int> fired;

// Counted for each callback: how many scans there are is a matter of time.
void timers() {
  g_start_ticks();
  g_timer_init();
  for (int i = 0; i < 10000; ++i) {
    g_add_timer(
        10,
        [](uint32_t interval, void*) {
          ++fired;
          return interval;
        },
        nullptr);
  }
  while (fired < 20000) usleep(1000);
  CALLGRIND_ZERO_STATS;
  const int before = fired;
  while (fired < before + 30000) usleep(1000);
  const std::string mark = "timer.callback " + std::to_string(fired - before);
  CALLGRIND_DUMP_STATS_AT(mark.c_str());
  g_timer_cleanup();
}

}  // namespace

int main() {
  char name[] = "/tmp/groundwork-instructions-XXXXXX";
  if (mkdtemp(name) == nullptr) return 1;
  folder = name;
  strings();
  configuration();
  containers();
  hash_tables();
  ciphers();
  files();
  streams();
  timers();
  for (const char* const file : {"conf", "file", "records", "lines"}) {
    unlink((folder + "/" + file).c_str());
  }
  return rmdir(name);
}
