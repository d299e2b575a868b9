// Callback lists by module id. Not locked.
//
// SPDX-License-Identifier: MIT

#include <cstdint>

#include <groundwork/callback.h>
#include <groundwork/hash.h>

namespace {

constexpr unsigned kSlots = 16;

constinit GHash* registry = nullptr;

// The id is the key, including 0 and negative ids.
void* key_of(int module) {
  return reinterpret_cast<void*>(static_cast<intptr_t>(module));
}

void free_list(void*, void* list) {
  g_callback_free(static_cast<GCallback*>(list));
}

GCallback* list_of(int module) {
  return static_cast<GCallback*>(g_hash_find(registry, key_of(module)));
}

// Null when memory is exhausted.
GCallback* new_list_of(int module) {
  GCallback* const list = g_callback_new();
  if (list == nullptr) return nullptr;
  if (g_hash_insert(registry, key_of(module), list) != 0) {
    g_callback_free(list);
    return nullptr;
  }
  return list;
}

}  // namespace

extern "C" int g_module_init(void) {
  // Kept: a previous registry is not freed, since its lists may still be in use.
  registry = g_hash_new(kSlots, g_hash_direct, nullptr, free_list);
  return 0;
}

extern "C" void g_module_cleanup(void) {
  g_hash_free(registry);  // reports a missing registry
  registry = nullptr;
}

extern "C" int g_module_callback_register(int module, GCallbackFunc func, void* data,
                                          int priority) {
  if (registry == nullptr) return -1;
  GCallback* list = list_of(module);
  if (list == nullptr) list = new_list_of(module);
  if (list == nullptr) return -1;
  return g_callback_add(list, func, data, priority) == 0 ? 0 : -1;
}

extern "C" int g_module_callback_cancel(int module, GCallbackFunc func, void* data) {
  // Kept: callers get their id back when there is nothing to cancel from.
  if (registry == nullptr) return module;
  GCallback* const list = list_of(module);
  return list != nullptr ? g_callback_remove(list, func, data) : 0;
}

extern "C" int g_module_callback_execute(int module, void* arg) {
  if (registry == nullptr) return 0;
  GCallback* const list = list_of(module);
  return list != nullptr ? g_callback_execute(list, arg) : 0;
}
