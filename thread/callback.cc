// Callback lists with priorities. Entries are sorted when they are added, so that execution
// is a single walk. Not locked.
//
// SPDX-License-Identifier: MIT

#include <groundwork/callback.h>

#include <cstddef>
#include <cstdlib>

#include <groundwork/list.h>

#include "core/check.h"
#include "core/owned.h"

using namespace groundwork;

struct GCallback {
  GList* head;  // of Entry
};
static_assert(sizeof(GCallback) == sizeof(GList*));

namespace {

constexpr char kSource[] = "g_callback";

struct Entry {
  GCallbackFunc func;
  void* data;
  int priority;
};
static_assert(offsetof(Entry, func) == 0 && offsetof(Entry, data) == sizeof(void*) &&
              offsetof(Entry, priority) == 2 * sizeof(void*));

const Entry& entry_of(const GList* node) {
  return *static_cast<const Entry*>(node->data);
}

// Links an entry before the first of greater priority. False, with the list unchanged, when
// memory is exhausted.
bool insert_sorted(GCallback* callback, Entry* entry) {
  GList* last = nullptr;
  GList* next = callback->head;
  while (next != nullptr && entry_of(next).priority <= entry->priority) {
    last = next;
    next = next->next;
  }
  if (next == nullptr) {
    GList* const head = g_list_append(last, entry);
    if (last == nullptr) callback->head = head;
    return last == nullptr ? head != nullptr : last->next != nullptr;
  }
  GList* const node = g_list_prepend(next, entry);
  if (last == nullptr) callback->head = node;
  return node != next;
}

}  // namespace

extern "C" GCallback* g_callback_new(void) {
  return static_cast<GCallback*>(std::calloc(1, sizeof(GCallback)));
}

extern "C" void g_callback_free(GCallback* callback) {
  CHECK_ARG(callback != NULL);
  for (GList* node = callback->head; node != nullptr; node = node->next) {
    std::free(node->data);
  }
  g_list_free(callback->head);
  std::free(callback);
}

extern "C" int g_callback_add(GCallback* callback, GCallbackFunc func, void* data,
                              int priority) {
  CHECK_ARG(callback != NULL, -1);
  CHECK_ARG(func != NULL, -1);
  Owned<Entry> entry(static_cast<Entry*>(std::malloc(sizeof(Entry))));
  if (entry == nullptr) return -1;
  *entry = {func, data, priority};
  if (!insert_sorted(callback, entry.get())) return -1;
  entry.release();
  return 0;
}

extern "C" int g_callback_remove(GCallback* callback, GCallbackFunc func, void* data) {
  CHECK_ARG(callback != NULL, -1);
  CHECK_ARG(func != NULL, -1);
  for (GList* node = callback->head; node != nullptr; node = node->next) {
    if (entry_of(node).func == func && entry_of(node).data == data) {
      std::free(node->data);
      callback->head = g_list_delete_link(callback->head, node);
      break;
    }
  }
  return 0;
}

extern "C" int g_callback_execute(GCallback* callback, void* arg) {
  CHECK_ARG(callback != NULL, -1);
  for (GList* node = callback->head; node != nullptr;) {
    // Read before the call: a function may remove its own entry.
    GList* const next = node->next;
    const Entry& entry = entry_of(node);
    if (entry.func(arg, entry.data) != 0) return -1;
    node = next;
  }
  return 0;
}
