// List, queue, hash table, ring buffer: what memory or a mutex refuses leaves the container
// as it was.
//
// SPDX-License-Identifier: MIT

#include <cstdint>
#include <string>

#include <groundwork/groundwork.h>

#include "faults/sweep.h"

using namespace faults;

namespace {

char a[] = "a";
char b[] = "b";
char c[] = "c";

// The elements in order, and the links both ways.
std::string text_of(GList* list) {
  std::string text;
  GList* prev = nullptr;
  for (GList* node = list; node != nullptr; node = node->next) {
    EXPECT_EQ(node->prev, prev);
    text += static_cast<const char*>(node->data);
    prev = node;
  }
  return text;
}

// --- The list.

void build_list(Pass& pass) {
  GList* list = nullptr;
  std::string expected;
  const auto step = [&](auto add, void* data, const std::string& with) {
    const int failures = pass.struck(Call::kAllocation);
    list = faulty(pass, [&] { return add(list, data); });
    if (pass.struck(Call::kAllocation) == failures) expected = with;
    EXPECT_EQ(text_of(list), expected);
  };
  step(g_list_append, a, "a");
  step(g_list_append, b, expected + "b");
  step(g_list_prepend, c, "c" + expected);
  std::string with = expected;
  with.insert(with.empty() ? 0 : 1, "b");  // the element goes second
  step(g_list_insert, b, with);
  with = expected;
  with.insert(std::min<size_t>(1, with.size()), "a");
  step([](GList* to, void* data) { return g_list_insert_before(to, data, 1); }, a, with);
  step([](GList* to, void* data) { return g_list_insert_before(to, data, 99); }, c,
       expected + "c");
  faulty(pass, [&] {
    g_list_free(list);
    return 0;
  });
}

void copy_list(Pass& pass) {
  GList* const list = g_list_append(g_list_append(g_list_append(nullptr, a), b), c);
  GList* const copy = faulty(pass, [&] { return g_list_copy(list); });
  EXPECT_EQ(text_of(copy), pass.struck() ? "" : "abc");
  EXPECT_EQ(text_of(list), "abc");
  g_list_free(copy);
  g_list_free(list);
}

void count_element(void*, void* count) {
  ++*static_cast<int*>(count);
}

void walk_list(Pass& pass) {
  GList* list = g_list_append(g_list_append(g_list_append(nullptr, a), b), c);
  int count = 0;
  int index = 0;
  unsigned length = 0;
  bool is_consistent = false;
  {
    const Faults faults(pass);
    g_list_foreach(list, count_element, &count);
    index = g_list_index(list, c);
    length = g_list_length(list);
    is_consistent = g_list_first(g_list_last(list)) == list &&
                    g_list_find(list, b) == g_list_nth(list, 1);
    list = g_list_reverse(list);
    GList* const link = list->next;
    list = g_list_remove_link(list, link);
    g_list_free(link);
    list = g_list_remove(list, a);
    list = g_list_delete_link(list, list);
  }
  EXPECT_FALSE(pass.struck());
  EXPECT_EQ(count, 3);
  EXPECT_EQ(index, 2);
  EXPECT_EQ(length, 3u);
  EXPECT_TRUE(is_consistent);
  EXPECT_EQ(list, nullptr);
}

// --- The queue.

int add_to_text(void* element, void* text) {
  *static_cast<std::string*>(text) += static_cast<const char*>(element);
  return 0;
}

// Outside of any fault. Would not return if the queue's lock were held.
void expect_queue(GQueue* queue, const std::string& expected) {
  std::string text;
  g_queue_foreach(queue, add_to_text, &text);
  EXPECT_EQ(text, expected);
  text.clear();
  g_queue_foreach_reverse(queue, add_to_text, &text);
  EXPECT_EQ(text, std::string(expected.rbegin(), expected.rend()));
  EXPECT_EQ(g_queue_count(queue), expected.size());
}

int stop_immediately(void*, void*) {
  return 1;
}

// Reads both ends, removes elements in each way and frees the queue: none of it can fail.
void empty_queue(Pass& pass, GQueue* queue, const std::string& expected) {
  void* ends[2];
  void* dequeued = nullptr;
  int is_empty = 0;
  {
    const Faults faults(pass);
    is_empty = g_queue_empty(queue);
    ends[0] = g_queue_first(queue);
    ends[1] = g_queue_last(queue);
    g_queue_foreach(queue, stop_immediately, nullptr);
    g_queue_foreach_reverse(queue, stop_immediately, nullptr);
    g_queue_remove(queue, c);
    g_queue_delete(queue, b);
    dequeued = g_queue_dequeue(queue, nullptr);
    g_queue_clear(queue);
    g_queue_free(queue);
  }
  EXPECT_EQ(is_empty, expected.empty() ? 1 : 0);
  if (!expected.empty()) {
    EXPECT_EQ(*static_cast<char*>(ends[0]), expected.front());
    EXPECT_EQ(*static_cast<char*>(ends[1]), expected.back());
  }
  EXPECT_EQ(dequeued == nullptr, expected.find('a') == expected.npos);
}

void use_queue(Pass& pass) {
  GQueue* const queue = faulty(pass, [] { return g_queue_new(nullptr, nullptr); });
  if (queue == nullptr) {
    EXPECT_NE(pass.struck(Call::kAllocation), 0);
    return;
  }
  std::string expected;
  const auto step = [&](auto change, const std::string& with) {
    const int failures = pass.struck(Call::kAllocation);
    faulty(pass, [&] {
      change();
      return 0;
    });
    if (pass.struck(Call::kAllocation) == failures) expected = with;
    expect_queue(queue, expected);
  };
  step([&] { g_queue_enqueue(queue, a); }, "a");
  step([&] { g_queue_enqueue(queue, b); }, expected + "b");
  const size_t at = expected.find('a');
  std::string with = expected;
  with.insert(at == expected.npos ? expected.size() : at + 1, "c");
  step([&] { g_queue_insert(queue, a, c); }, with);
  step([&] { g_queue_insert(queue, nullptr, a); }, expected + "a");
  empty_queue(pass, queue, expected);
}

// --- The hash table.

void* key_of(uintptr_t number) {
  return reinterpret_cast<void*>(number);
}

// With few slots, so that it grows; with many keys, so that there is an index.
void use_hash(Pass& pass) {
  constexpr uintptr_t kKeys = 70;
  GHash* const hash =
      faulty(pass, [] { return g_hash_new(2, g_hash_direct, nullptr, nullptr); });
  if (hash == nullptr) {
    EXPECT_NE(pass.struck(Call::kAllocation), 0);
    return;
  }
  bool is_in[kKeys] = {};
  unsigned count = 0;
  for (uintptr_t key = 0; key < kKeys; ++key) {
    const int result =
        faulty(pass, [&] { return g_hash_insert(hash, key_of(key), key_of(key + 1)); });
    EXPECT_TRUE(result == 0 || pass.struck(Call::kAllocation));
    is_in[key] = result == 0;
    count += result == 0 ? 1 : 0;
    EXPECT_EQ(g_hash_count(hash), count);
  }
  for (uintptr_t key = 0; key < kKeys; ++key) {
    void* const value = faulty(pass, [&] { return g_hash_find(hash, key_of(key)); });
    EXPECT_EQ(value, is_in[key] ? key_of(key + 1) : nullptr);
  }
  for (uintptr_t key = 0; key < kKeys; key += 3) {
    const int result = faulty(pass, [&] { return g_hash_remove(hash, key_of(key)); });
    EXPECT_EQ(result, is_in[key] ? 0 : -1);
    EXPECT_EQ(g_hash_find(hash, key_of(key)), nullptr);
  }
  faulty(pass, [&] {
    g_hash_free(hash);
    return 0;
  });
}

void use_string_keys(Pass& pass) {
  std::string keys[20];
  for (int i = 0; i < 20; ++i) keys[i] = "key" + std::to_string(i);
  GHash* const hash =
      faulty(pass, [] { return g_hash_new(16, g_hash_str, g_hash_str_equal, nullptr); });
  if (hash == nullptr) return;
  for (std::string& key : keys) {
    const int result = faulty(pass, [&] { return g_hash_insert(hash, key.data(), a); });
    const std::string same = key;
    EXPECT_EQ(g_hash_find(hash, same.c_str()), result == 0 ? a : nullptr);
  }
  g_hash_free(hash);
}

void use_int_keys(Pass& pass) {
  int keys[20];
  for (int i = 0; i < 20; ++i) keys[i] = i * 1000;
  GHash* const hash =
      faulty(pass, [] { return g_hash_new(16, g_hash_int, g_hash_int_equal, nullptr); });
  if (hash == nullptr) return;
  for (int& key : keys) {
    const int result = faulty(pass, [&] { return g_hash_insert(hash, &key, a); });
    const int same = key;
    EXPECT_EQ(g_hash_find(hash, &same), result == 0 ? a : nullptr);
  }
  EXPECT_EQ(g_hash_direct_equal(a, a), 1);
  g_hash_free(hash);
}

// --- The ring buffer.

void use_fifo(Pass& pass) {
  GFifo* const fifo = faulty(pass, [] { return g_fifo_new(2); });
  if (fifo == nullptr) {
    EXPECT_NE(pass.struck(Call::kAllocation), 0);
    return;
  }
  int puts[3];
  int figures[5];
  void* gets[3];
  {
    const Faults faults(pass);
    puts[0] = g_fifo_put(fifo, a);
    puts[1] = g_fifo_put(fifo, b);
    figures[0] = g_fifo_full(fifo);
    puts[2] = g_fifo_put(fifo, c);
    gets[0] = g_fifo_get(fifo);
    figures[1] = g_fifo_count(fifo);
    figures[2] = g_fifo_avail(fifo);
    figures[3] = g_fifo_size(fifo);
    gets[1] = g_fifo_get(fifo);
    figures[4] = g_fifo_empty(fifo);
    gets[2] = g_fifo_get(fifo);
    g_fifo_flush(fifo);
    g_fifo_free(fifo);
  }
  EXPECT_EQ(puts[0], 0);
  EXPECT_EQ(puts[1], 0);
  EXPECT_EQ(puts[2], -1);
  EXPECT_EQ(gets[0], a);
  EXPECT_EQ(gets[1], b);
  EXPECT_EQ(gets[2], nullptr);
  EXPECT_EQ(figures[0], 1);
  EXPECT_EQ(figures[1], 1);
  EXPECT_EQ(figures[2], 1);
  EXPECT_EQ(figures[3], 2);
  EXPECT_EQ(figures[4], 1);
}

const Scenarios scenarios(
    "containers",
    {
        {"ListGrows",
         {"g_list_append", "g_list_prepend", "g_list_insert", "g_list_insert_before",
          "g_list_free"},
         build_list},
        {"ListCopy", {"g_list_copy"}, copy_list},
        {"ListWalks",
         {"g_list_foreach", "g_list_index", "g_list_length", "g_list_first", "g_list_last",
          "g_list_find", "g_list_nth", "g_list_reverse", "g_list_remove_link",
          "g_list_remove", "g_list_delete_link"},
         walk_list},
        {"Queue",
         {"g_queue_new", "g_queue_free", "g_queue_empty", "g_queue_enqueue",
          "g_queue_dequeue", "g_queue_first", "g_queue_last", "g_queue_clear",
          "g_queue_insert", "g_queue_delete", "g_queue_remove", "g_queue_foreach",
          "g_queue_foreach_reverse", "g_queue_count"},
         use_queue},
        {"HashTable",
         {"g_hash_new", "g_hash_free", "g_hash_insert", "g_hash_find", "g_hash_remove",
          "g_hash_count", "g_hash_direct"},
         use_hash},
        {"HashTableOfStrings", {"g_hash_str", "g_hash_str_equal"}, use_string_keys},
        {"HashTableOfInts",
         {"g_hash_int", "g_hash_int_equal", "g_hash_direct_equal"},
         use_int_keys},
        {"RingBuffer",
         {"g_fifo_new", "g_fifo_free", "g_fifo_empty", "g_fifo_full", "g_fifo_put",
          "g_fifo_get", "g_fifo_flush", "g_fifo_count", "g_fifo_avail", "g_fifo_size"},
         use_fifo},
    });

}  // namespace
