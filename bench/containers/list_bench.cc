// The list against utlist, whose macros put the loop's body in line, and against loops
// written by hand. Both kinds of node hold a pointer to an element.
//
// SPDX-License-Identifier: MIT

#include <groundwork/list.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <vector>

#include "support/job.h"
#include "utlist.h"

using namespace groundwork::bench;

namespace {

struct Node {
  Node* next;
  Node* prev;
  void* data;
};

Node* new_node(void* data) {
  Node* const node = static_cast<Node*>(std::malloc(sizeof(Node)));
  node->data = data;
  return node;
}

std::vector<uint32_t> elements_of(const State& state) {
  std::vector<uint32_t> elements(static_cast<size_t>(state.range(0)));
  for (uint32_t i = 0; i < elements.size(); ++i) elements[i] = i + 1;
  return elements;
}

// A list that exists before the measurement begins.
class OurList {
 public:
  explicit OurList(std::vector<uint32_t>& elements) {
    for (size_t i = elements.size(); i > 0; --i) {
      head = g_list_prepend(head, &elements[i - 1]);
    }
  }
  ~OurList() { g_list_free(head); }

  GList* head = nullptr;
};

class Utlist {
 public:
  explicit Utlist(std::vector<uint32_t>& elements) {
    for (uint32_t& element : elements) {
      Node* const node = new_node(&element);
      DL_APPEND(head, node);
    }
  }
  ~Utlist() {
    for (Node* node = head; node != nullptr;) {
      Node* const next = node->next;
      std::free(node);
      node = next;
    }
  }

  Node* head = nullptr;
};

std::list<void*> std_list_of(std::vector<uint32_t>& elements) {
  std::list<void*> list;
  for (uint32_t& element : elements) list.push_back(&element);
  return list;
}

// --- foreach ---

void add_up(void* data, void* user_data) {
  *static_cast<uint32_t*>(user_data) += *static_cast<uint32_t*>(data);
}

void foreach_ours(State& state) {
  std::vector<uint32_t> elements = elements_of(state);
  const OurList list(elements);
  uint32_t sum = 0;
  for (auto _ : state) {
    sum = 0;
    g_list_foreach(list.head, add_up, &sum);
    DoNotOptimize(sum);
  }
  report(state, static_cast<double>(elements.size()), sum);
}

void foreach_utlist_in_line(State& state) {
  std::vector<uint32_t> elements = elements_of(state);
  const Utlist list(elements);
  uint32_t sum = 0;
  for (auto _ : state) {
    sum = 0;
    Node* node;
    DL_FOREACH(list.head, node) sum += *static_cast<uint32_t*>(node->data);
    DoNotOptimize(sum);
  }
  report(state, static_cast<double>(elements.size()), sum);
}

// The same job: a function that the loop does not know is called for each element.
void foreach_utlist_calling(State& state) {
  std::vector<uint32_t> elements = elements_of(state);
  const Utlist list(elements);
  void (*function)(void*, void*) = add_up;
  uint32_t sum = 0;
  for (auto _ : state) {
    sum = 0;
    DoNotOptimize(function);
    Node* node;
    DL_FOREACH(list.head, node) function(node->data, &sum);
    DoNotOptimize(sum);
  }
  report(state, static_cast<double>(elements.size()), sum);
}

void foreach_std_list(State& state) {
  std::vector<uint32_t> elements = elements_of(state);
  const std::list<void*> list = std_list_of(elements);
  uint32_t sum = 0;
  for (auto _ : state) {
    sum = 0;
    for (void* const element : list) sum += *static_cast<uint32_t*>(element);
    DoNotOptimize(sum);
  }
  report(state, static_cast<double>(elements.size()), sum);
}

// --- find: the last element, so that all nodes are visited ---

void find_ours(State& state) {
  std::vector<uint32_t> elements = elements_of(state);
  const OurList list(elements);
  GList* found = nullptr;
  for (auto _ : state) {
    found = g_list_find(list.head, &elements.back());
    DoNotOptimize(found);
  }
  report(state, static_cast<double>(elements.size()), *static_cast<uint32_t*>(found->data));
}

void find_utlist(State& state) {
  std::vector<uint32_t> elements = elements_of(state);
  const Utlist list(elements);
  Node* found = nullptr;
  for (auto _ : state) {
    DL_SEARCH_SCALAR(list.head, found, data, &elements.back());
    DoNotOptimize(found);
  }
  report(state, static_cast<double>(elements.size()), *static_cast<uint32_t*>(found->data));
}

void find_std_list(State& state) {
  std::vector<uint32_t> elements = elements_of(state);
  const std::list<void*> list = std_list_of(elements);
  auto found = list.end();
  for (auto _ : state) {
    found = std::find(list.begin(), list.end(), &elements.back());
    DoNotOptimize(found);
  }
  report(state, static_cast<double>(elements.size()), *static_cast<uint32_t*>(*found));
}

// --- prepend, and free in the end ---

void prepend_ours(State& state) {
  std::vector<uint32_t> elements = elements_of(state);
  uint32_t first = 0;
  for (auto _ : state) {
    GList* list = nullptr;
    for (uint32_t& element : elements) list = g_list_prepend(list, &element);
    first = *static_cast<uint32_t*>(list->data);
    g_list_free(list);
  }
  report(state, static_cast<double>(elements.size()), first);
}

void prepend_utlist(State& state) {
  std::vector<uint32_t> elements = elements_of(state);
  uint32_t first = 0;
  for (auto _ : state) {
    Node* list = nullptr;
    for (uint32_t& element : elements) {
      Node* const node = new_node(&element);
      DL_PREPEND(list, node);
    }
    first = *static_cast<uint32_t*>(list->data);
    for (Node* node = list; node != nullptr;) {
      Node* const next = node->next;
      std::free(node);
      node = next;
    }
  }
  report(state, static_cast<double>(elements.size()), first);
}

void prepend_std_list(State& state) {
  std::vector<uint32_t> elements = elements_of(state);
  uint32_t first = 0;
  for (auto _ : state) {
    std::list<void*> list;
    for (uint32_t& element : elements) list.push_front(&element);
    first = *static_cast<uint32_t*>(list.front());
  }
  report(state, static_cast<double>(elements.size()), first);
}

// --- append: one element to a list of the given size, and off again ---

void append_ours(State& state) {
  std::vector<uint32_t> elements = elements_of(state);
  const OurList list(elements);
  GList* const tail = g_list_last(list.head);
  uint32_t extra = 7;
  uint32_t last = 0;
  for (auto _ : state) {
    g_list_append(list.head, &extra);
    last = *static_cast<uint32_t*>(tail->next->data);
    std::free(tail->next);
    tail->next = nullptr;
  }
  report(state, 1, last);
}

// A list that knows its head only, by hand.
void append_by_hand(State& state) {
  std::vector<uint32_t> elements = elements_of(state);
  const Utlist list(elements);
  Node* const tail = list.head->prev;
  uint32_t extra = 7;
  uint32_t last = 0;
  for (auto _ : state) {
    Node* const node = new_node(&extra);
    Node* end = list.head;
    while (end->next != nullptr) end = end->next;
    end->next = node;
    node->prev = end;
    node->next = nullptr;
    last = *static_cast<uint32_t*>(tail->next->data);
    std::free(tail->next);
    tail->next = nullptr;
    benchmark::ClobberMemory();
  }
  report(state, 1, last);
}

// A list whose head knows its tail.
void append_utlist(State& state) {
  std::vector<uint32_t> elements = elements_of(state);
  const Utlist list(elements);
  Node* head = list.head;
  uint32_t extra = 7;
  uint32_t last = 0;
  for (auto _ : state) {
    Node* const node = new_node(&extra);
    DL_APPEND(head, node);
    last = *static_cast<uint32_t*>(head->prev->data);
    DL_DELETE(head, node);
    std::free(node);
  }
  report(state, 1, last);
}

}  // namespace

void groundwork::bench::register_jobs() {
  for (const int size : {10, 1000, 100000}) {
    job("list.foreach", "ours", foreach_ours)->Arg(size);
    job("list.foreach", "utlist, function", foreach_utlist_calling)->Arg(size);
    job("list.foreach", "utlist, in line", foreach_utlist_in_line)->Arg(size);
    job("list.foreach", "std::list", foreach_std_list)->Arg(size);
    job("list.find", "ours", find_ours)->Arg(size);
    job("list.find", "utlist", find_utlist)->Arg(size);
    job("list.find", "std::list", find_std_list)->Arg(size);
    job("list.prepend", "ours", prepend_ours)->Arg(size);
    job("list.prepend", "utlist", prepend_utlist)->Arg(size);
    job("list.prepend", "std::list", prepend_std_list)->Arg(size);
    job("list.append", "ours", append_ours)->Arg(size);
    job("list.append", "walk+malloc", append_by_hand)->Arg(size);
    job("list.append", "utlist", append_utlist)->Arg(size);
  }
}
