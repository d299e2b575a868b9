// Doubly linked list. Uses malloc() and free() directly, since lists log nothing.
//
// SPDX-License-Identifier: MIT

#include <groundwork/list.h>

#include <cstddef>
#include <cstdlib>
#include <utility>

static_assert(offsetof(GList, next) == 0 && offsetof(GList, prev) == sizeof(void*) &&
              offsetof(GList, data) == 2 * sizeof(void*));

namespace {

// Creates a node linked between `prev` and `next`, either of which may be null. Returns
// null, with nothing changed, when memory is exhausted.
GList* new_node_between(GList* prev, GList* next, void* data) {
  auto* const node = static_cast<GList*>(std::malloc(sizeof(GList)));
  if (node == nullptr) [[unlikely]]
    return nullptr;
  *node = {next, prev, data};
  if (prev != nullptr) prev->next = node;
  if (next != nullptr) next->prev = node;
  return node;
}

}  // namespace

extern "C" void g_list_free(GList* list) {
  while (list != nullptr) {
    std::free(std::exchange(list, list->next));
  }
}

extern "C" int g_list_index(GList* list, const void* data) {
  for (int index = 0; list != nullptr; list = list->next, ++index) {
    if (list->data == data) return index;
  }
  return -1;
}

extern "C" GList* g_list_nth(GList* list, int n) {
  for (; n > 0 && list != nullptr; --n) list = list->next;
  return list;
}

extern "C" GList* g_list_last(GList* list) {
  if (list == nullptr) return nullptr;
  while (list->next != nullptr) list = list->next;
  return list;
}

extern "C" GList* g_list_first(GList* list) {
  if (list == nullptr) return nullptr;
  while (list->prev != nullptr) list = list->prev;
  return list;
}

extern "C" unsigned g_list_length(GList* list) {
  unsigned length = 0;
  for (; list != nullptr; list = list->next) ++length;
  return length;
}

extern "C" void g_list_foreach(GList* list, GListFunc func, void* user_data) {
  while (list != nullptr) {
    // Read before the call: the function may free its node.
    GList* const next = list->next;
    func(list->data, user_data);
    list = next;
  }
}

extern "C" GList* g_list_insert(GList* list, void* data) {
  if (list == nullptr) return new_node_between(nullptr, nullptr, data);
  new_node_between(list, list->next, data);
  return list;
}

extern "C" GList* g_list_append(GList* list, void* data) {
  GList* const node = new_node_between(g_list_last(list), nullptr, data);
  return list != nullptr ? list : node;
}

extern "C" GList* g_list_prepend(GList* list, void* data) {
  GList* const node = new_node_between(list != nullptr ? list->prev : nullptr, list, data);
  return node != nullptr ? node : list;
}

extern "C" GList* g_list_insert_before(GList* list, void* data, int position) {
  if (position < 0) return g_list_append(list, data);
  GList* const sibling = g_list_nth(list, position);
  if (sibling == nullptr) return g_list_append(list, data);
  GList* const head = g_list_prepend(sibling, data);
  return sibling == list ? head : list;
}

extern "C" GList* g_list_copy(GList* list) {
  GList* head = nullptr;
  GList* tail = nullptr;
  for (; list != nullptr; list = list->next) {
    GList* const node = new_node_between(tail, nullptr, list->data);
    if (node == nullptr) [[unlikely]] {
      g_list_free(head);
      return nullptr;
    }
    if (head == nullptr) head = node;
    tail = node;
  }
  return head;
}

extern "C" GList* g_list_reverse(GList* list) {
  GList* head = nullptr;
  while (list != nullptr) {
    head = list;
    list = list->next;
    std::swap(head->next, head->prev);
  }
  return head;
}

extern "C" GList* g_list_remove_link(GList* list, GList* link) {
  if (link == nullptr) return list;
  if (link->prev != nullptr) link->prev->next = link->next;
  if (link->next != nullptr) link->next->prev = link->prev;
  GList* const head = link == list ? list->next : list;
  link->next = nullptr;
  link->prev = nullptr;
  return head;
}

extern "C" GList* g_list_delete_link(GList* list, GList* link) {
  GList* const head = g_list_remove_link(list, link);
  std::free(link);
  return head;
}

extern "C" GList* g_list_remove(GList* list, const void* data) {
  return g_list_delete_link(list, g_list_find(list, data));
}

extern "C" GList* g_list_find(GList* list, const void* data) {
  while (list != nullptr && list->data != data) list = list->next;
  return list;
}
