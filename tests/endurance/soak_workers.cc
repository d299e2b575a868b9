// SPDX-License-Identifier: MIT

#include "endurance/soak_workers.h"

#include <groundwork/url.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace test {

std::atomic<int> soak_failures{0};
std::atomic<int> soak_log_lines{0};

void soak_failed(const char* file, int line, const char* what) {
  if (++soak_failures <= 20) std::fprintf(stderr, "%s:%d: not so: %s\n", file, line, what);
}

namespace {

// --- Queue: blocks from one thread to another, which is woken by an event

struct Element {
  int number;
};

void fill_queue(SoakRound& round, int number) {
  for (int i = 0; i < 20; ++i) {
    auto* const element = static_cast<Element*>(g_malloc(sizeof(Element)));
    SOAK_CHECK(element != nullptr);
    if (element == nullptr) return;
    element->number = number * 20 + i;
    g_queue_enqueue(round.queue, element);
  }
  g_thread_event_signal(round.queue_filled);
  while (g_queue_count(round.queue) > 200 && !round.stopping) g_delay(1);
}

int count_elements(void*, void* count) {
  ++*static_cast<unsigned*>(count);
  return 0;
}

void drain_queue(SoakRound& round, int number) {
  thread_local int last;
  if (number == 0) last = -1;
  g_thread_event_wait(round.queue_filled);
  unsigned counted = 0;
  g_queue_foreach(round.queue, count_elements, &counted);
  void* taken;
  while ((taken = g_queue_dequeue(round.queue, nullptr)) != nullptr) {
    SOAK_CHECK(static_cast<Element*>(taken)->number == last + 1);
    last = static_cast<Element*>(taken)->number;
    std::free(taken);
  }
}

// --- Ring buffer

void put_into_fifo(SoakRound& round, int number) {
  while (g_fifo_full(round.fifo) == 1) {
    if (round.stopping) return;
    g_delay(1);
  }
  auto* const element = static_cast<Element*>(g_malloc0(sizeof(Element)));
  element->number = number;
  SOAK_CHECK(g_fifo_put(round.fifo, element) == 0);
}

void get_from_fifo(SoakRound& round, int number) {
  thread_local int last;
  if (number == 0) last = -1;
  while (g_fifo_empty(round.fifo) == 1) {
    if (round.stopping) return;
    g_delay(1);
  }
  void* const element = g_fifo_get(round.fifo);
  SOAK_CHECK(element != nullptr && static_cast<Element*>(element)->number == last + 1);
  ++last;
  std::free(element);
}

// --- One configuration for several threads

void write_conf(SoakRound& round, int number) {
  pthread_rwlock_rdlock(&round.conf_in_use);
  g_conf_write_int(round.conf, "numbers", "count", number);
  SOAK_CHECK(g_conf_read_int(round.conf, "numbers", "count", -1) == number);
  char* const key = g_strdup_printf("key %d", number % 100);
  g_conf_write_double(round.conf, "many", key, number);
  if (number % 7 == 0) g_conf_remove_key(round.conf, "many", key);
  if (number % 1000 == 999) g_conf_remove_section(round.conf, "many");
  std::free(key);
  pthread_rwlock_unlock(&round.conf_in_use);
  if (number % 100 == 0) g_delay(1);
}

void write_conf_texts(SoakRound& round, int number) {
  pthread_rwlock_rdlock(&round.conf_in_use);
  g_conf_write_boolean(round.conf, "texts", "on", number % 2);
  SOAK_CHECK(g_conf_read_boolean(round.conf, "texts", "ON", 7) == number % 2);
  char* const text = g_strdup_printf("%0*d", number % 300 + 1, number);
  g_conf_write_string(round.conf, "texts", "text", text);
  SOAK_CHECK(std::strcmp(g_conf_read_string(round.conf, "texts", "text", ""), text) == 0);
  std::free(text);
  pthread_rwlock_unlock(&round.conf_in_use);
  if (number % 100 == 0) g_delay(1);
}

void read_conf(SoakRound& round, int number) {
  pthread_rwlock_rdlock(&round.conf_in_use);
  SOAK_CHECK(g_conf_read_int(round.conf, "constant", "int", 0) == 42);
  const double written = g_conf_read_double(round.conf, "many", "key 50", 50);
  SOAK_CHECK(written >= 0);
  SOAK_CHECK(g_conf_read_int(round.conf, "missing", "key", 5) == 5);
  pthread_rwlock_unlock(&round.conf_in_use);
  if (number % 100 == 0) g_delay(1);
}

int note_change(const GConfChange*, void* changes) {
  ++*static_cast<std::atomic<int>*>(changes);
  return 0;
}

// Nobody else may change the conf while it is written.
void sync_conf(SoakRound& round, int) {
  pthread_rwlock_wrlock(&round.conf_in_use);
  g_conf_sync(round.conf);
  GConf* const again = g_conf_open(round.conf->filename);
  SOAK_CHECK(again != nullptr);
  SOAK_CHECK(g_conf_read_int(again, "constant", "int", 0) == 42);
  SOAK_CHECK(g_conf_read_int(again, "numbers", "count", -1) ==
             g_conf_read_int(round.conf, "numbers", "count", -1));
  pthread_rwlock_unlock(&round.conf_in_use);
  g_conf_close(again);
  g_delay(20);
}

// --- Timers and timeouts

uint32_t tick(uint32_t interval, void* calls) {
  ++*static_cast<std::atomic<int>*>(calls);
  return interval;
}

uint32_t tick_once(uint32_t, void* calls) {
  ++*static_cast<std::atomic<int>*>(calls);
  return 0;
}

void use_timers(SoakRound&, int) {
  static std::atomic<int> calls;  // outlives every timer
  GTimerEntry* timers[10];
  for (int i = 0; i < 10; ++i) timers[i] = g_add_timer(10 + 10 * i, tick, &calls);
  g_add_timer(10, tick_once, &calls);
  const uint32_t before = g_get_ticks();
  g_delay(35);
  SOAK_CHECK(g_get_ticks() - before >= 30);
  for (GTimerEntry* const timer : timers) SOAK_CHECK(g_remove_timer(timer) == 1);
}

int call_again(void* calls) {
  ++*static_cast<std::atomic<int>*>(calls);
  return 1;
}

int call_thrice(void* calls) {
  return ++*static_cast<std::atomic<int>*>(calls) < 3;
}

void use_timeouts(SoakRound&, int) {
  std::atomic<int> calls{0};
  std::atomic<int> own_calls{0};
  g_timeout_new("ends by itself", 1, call_thrice, &own_calls);
  GTimeout* const timeout = g_timeout_new("freed", 2, call_again, &calls);
  SOAK_CHECK(timeout != nullptr);
  g_delay(7);
  g_timeout_free(timeout);
  const int last = calls;
  while (own_calls < 3) g_delay(1);
  SOAK_CHECK(calls == last);
  g_delay(3);  // so that the one that ended is gone, with its thread
}

// --- Threads, mutexes

struct Counter {
  GMutex* mutex;
  int value;
};

void* count_up(void* argument) {
  auto* const counter = static_cast<Counter*>(argument);
  for (int i = 0; i < 100; ++i) {
    g_thread_mutex_lock(counter->mutex);
    ++counter->value;
    g_thread_mutex_unlock(counter->mutex);
  }
  return nullptr;
}

void* sleep_on(void*) {
  for (;;) g_delay(1000);
}

void use_threads(SoakRound&, int) {
  Counter counter{g_thread_mutex_new(), 0};
  GThread* threads[4];
  for (GThread*& thread : threads) thread = g_thread_create(count_up, &counter, "counter");
  for (GThread* const thread : threads) g_thread_wait(thread);
  SOAK_CHECK(counter.value == 400);
  g_thread_mutex_free(counter.mutex);
  GThread* const sleeper = g_thread_create(sleep_on, nullptr, "sleeper");
  g_thread_cancel(sleeper);
  g_thread_wait(sleeper);
  g_delay(2);
}

// --- Streams: process-wide state, so one thread has them all

void read_stream(const char* name, const std::string& body) {
  URL url = url_open(name);
  SOAK_CHECK(url != nullptr);
  if (url == nullptr) return;
  char line[200];
  size_t length = 0;
  bool same = true;
  while (url_gets(url, line, sizeof line) != nullptr) {
    same = same && body.compare(length, std::strlen(line), line) == 0;
    length += std::strlen(line);
  }
  SOAK_CHECK(same && length == body.size());
  url_close(url);
}

void read_urls(SoakRound& round, int) {
  const std::string path = round.directory + "/body";
  read_stream(path.c_str(), round.body);
  read_stream(("file:" + path).c_str(), round.body);
  read_stream(round.url.c_str(), round.body);
  int32_t length = 0;
  URL url = url_open(round.url.c_str());
  SOAK_CHECK(url != nullptr);
  if (url != nullptr) {
    void* const all = url_dump(url, 1 << 16, &length);
    SOAK_CHECK(length > 0 && std::memcmp(all, round.body.data(), size_t(length)) == 0);
    std::free(all);
    url_close(url);
  }
  SOAK_CHECK(url_open((path + ".missing").c_str()) == nullptr);
  g_delay(5);
}

// --- What keeps no state

void free_pair(void* key, void* value) {
  std::free(key);
  std::free(value);
}

void use_hash(SoakRound&, int number) {
  GHash* const table = g_hash_new(16, g_hash_str, g_hash_str_equal, free_pair);
  for (int i = 0; i < 200; ++i) {
    g_hash_insert(table, g_strdup_printf("%d", i), g_strdup_printf("%d", i + number));
  }
  SOAK_CHECK(g_hash_count(table) == 200);
  for (int i = 0; i < 200; i += 3)
    SOAK_CHECK(g_hash_remove(table, std::to_string(i).c_str()) == 0);
  for (int i = 0; i < 200; ++i) {
    const void* const value = g_hash_find(table, std::to_string(i).c_str());
    SOAK_CHECK((value == nullptr) == (i % 3 == 0));
    SOAK_CHECK(value == nullptr ||
               std::to_string(i + number) == static_cast<const char*>(value));
  }
  g_hash_free(table);
  g_delay(1);
}

void use_strings(SoakRound&, int number) {
  char* const text = g_strdup_printf(" %d,%s,%5.2f,%08x \n", number, "two", 2.5, 0xbeef);
  g_strchomp(g_strchug(text));
  char** const pieces = g_strsplit(text, ",", 0);
  SOAK_CHECK(pieces != nullptr && std::atoi(pieces[0]) == number);
  SOAK_CHECK(std::strcmp(pieces[1], "two") == 0 && std::strcmp(pieces[3], "0000beef") == 0);
  g_strfreev(pieces);
  std::free(text);
  GList* list = nullptr;
  for (int i = 0; i < 20; ++i) list = g_list_prepend(list, &list);
  SOAK_CHECK(g_list_length(list) == 20);
  g_list_free(list);
  if (number % 100 == 0) g_delay(1);
}

void log_lines(SoakRound&, int number) {
  const int before = soak_log_lines;  // of this thread alone
  SOAK_CHECK(g_log(1, "soak", __LINE__, "below the threshold: %d", number) == 1);
  SOAK_CHECK(g_log(5, "soak", __LINE__, "turn %d", number) == 0);
  SOAK_CHECK(soak_log_lines == before + 1);
  if (number % 100 == 0) g_delay(1);
}

void use_ciphers(SoakRound&, int number) {
  unsigned char block[8];
  unsigned char key[8] = {1, 2, 3, 4, 5, 6, 7, static_cast<unsigned char>(number)};
  const unsigned char plain[8] = {8, 7, 6, 5, 4, 3, 2, static_cast<unsigned char>(number)};
  g_crypt_des_encrypt(plain, block, key);
  g_crypt_des_decrypt(block, block, key);
  SOAK_CHECK(std::memcmp(plain, block, 8) == 0);
  g_crypt_d3des_encrypt(plain, block, key);
  char text[20];
  SOAK_CHECK(g_crypt_base64_encode(block, text, 6) == 8);
  unsigned char decoded[12];
  SOAK_CHECK(g_crypt_base64_decode(text, decoded) == 6 &&
             std::memcmp(decoded, block, 6) == 0);
  g_crypt_d3des_decrypt(block, block, key);
  SOAK_CHECK(std::memcmp(plain, block, 8) == 0);
  if (number % 100 == 0) g_delay(1);
}

void use_files(SoakRound& round, int) {
  const std::string top = round.directory + "/made/";
  std::string path = top + "one/two/";
  SOAK_CHECK(g_mkdir(path.data()) == 0);
  const std::string file = path + "file";
  const std::string copy = path + "copy";
  GFile* const made = g_file_open(file.c_str(), 2);
  SOAK_CHECK(made != nullptr);
  SOAK_CHECK(g_file_lock_write(made) == 0);
  SOAK_CHECK(g_file_write(made, round.body.data(), int64_t(round.body.size())) ==
             int64_t(round.body.size()));
  g_file_unlock(made);
  g_file_close(made);
  SOAK_CHECK(g_file_copy(file.c_str(), copy.c_str()) == 0);
  int64_t length = 0;
  char* const read = g_file_read_buf(copy.c_str(), &length);
  SOAK_CHECK(read != nullptr && length == int64_t(round.body.size()));
  std::free(read);
  int count = 0;
  char** const names = g_dir_list(path.c_str(), 0, &count);
  SOAK_CHECK(names != nullptr);
  g_dir_list_free(names);
  SOAK_CHECK(g_rmdir(top.c_str()) == 0);
  SOAK_CHECK(g_dir_exist(top.c_str()) == 0);
  g_sys_mem_use();
  g_delay(5);
}

}  // namespace

SoakWorker soak_workers[] = {
    {"queue in", fill_queue},     {"queue out", drain_queue},
    {"ring in", put_into_fifo},   {"ring out", get_from_fifo},
    {"conf numbers", write_conf}, {"conf texts", write_conf_texts},
    {"conf reads", read_conf},    {"conf syncs", sync_conf},
    {"timers", use_timers},       {"timeouts", use_timeouts},
    {"threads", use_threads},     {"streams", read_urls},
    {"hash", use_hash},           {"strings", use_strings},
    {"log", log_lines},           {"ciphers", use_ciphers},
    {"files", use_files},         {nullptr, nullptr},
};

void begin_round(SoakRound& round) {
  pthread_rwlockattr_t attributes;  // else those who read would keep the sync out for ever
  pthread_rwlockattr_init(&attributes);
#ifdef __GLIBC__
  pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
#endif
  pthread_rwlock_init(&round.conf_in_use, &attributes);
  pthread_rwlockattr_destroy(&attributes);
  round.queue = g_queue_new(nullptr, nullptr);
  round.queue_filled = g_thread_event_new();
  round.fifo = g_fifo_new(64);
  round.conf = g_conf_open((round.directory + "/soak.conf").c_str());
  SOAK_CHECK(round.queue != nullptr && round.queue_filled != nullptr &&
             round.fifo != nullptr && round.conf != nullptr);
  g_conf_write_int(round.conf, "constant", "int", 42);
  g_conf_register_callback(round.conf, "numbers", "count", note_change,
                           &round.conf_changes);
}

void end_round(SoakRound& round) {
  SOAK_CHECK(g_conf_close(round.conf) == 0);
  SOAK_CHECK(round.conf_changes > 0);
  g_fifo_flush(round.fifo);
  g_fifo_free(round.fifo);
  g_thread_event_free(round.queue_filled);
  void* left;
  while ((left = g_queue_dequeue(round.queue, nullptr)) != nullptr) std::free(left);
  g_queue_free(round.queue);
  pthread_rwlock_destroy(&round.conf_in_use);
}

}  // namespace test
