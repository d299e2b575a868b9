// Change callbacks: a table from "section.key" to the callbacks of that key.
//
// SPDX-License-Identifier: MIT

#include "conf/callbacks.h"

#include <groundwork/callback.h>
#include <groundwork/str.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include <pthread.h>

#include "conf/model.h"
#include "core/cancellation.h"
#include "core/check.h"
#include "core/owned.h"

using namespace groundwork;

namespace {

// "section.key", in an internal buffer if it fits.
class TableKey {
 public:
  TableKey(const char* section, const char* key) {
    const size_t section_length = std::strlen(section);
    const size_t key_length = std::strlen(key);
    size_t size = 0;
    if (__builtin_add_overflow(section_length + 2, key_length, &size)) return;
    if (size > sizeof short_) {
      long_.reset(static_cast<char*>(std::malloc(size)));
      text_ = long_.get();
      if (text_ == nullptr) return;
    } else {
      text_ = short_;
    }
    std::memcpy(text_, section, section_length);
    text_[section_length] = '.';
    std::memcpy(text_ + section_length + 1, key, key_length + 1);
  }

  // Null when memory is exhausted.
  const char* text() const { return text_; }

 private:
  char short_[128];
  Owned<char> long_;
  char* text_ = nullptr;
};

GCallback* find_callbacks(GConf* conf, const char* table_key) {
  return static_cast<GCallback*>(g_hash_find(conf->callbacks, table_key));
}

// The public callback type has a typed parameter; the list passes void*, which is passed in
// the same way.
int add_callback(GCallback* callbacks, GConfCallback func, void* data) {
  // All have the same priority, so that they run in the order of registration.
  return g_callback_add(callbacks, reinterpret_cast<GCallbackFunc>(func), data, 0);
}

// Adds a list with its first callback to the table.
bool add_list(GConf* conf, const char* table_key, GConfCallback func, void* data) {
  Owned<char> owned_key(g_strdup(table_key));
  if (owned_key == nullptr) return false;
  GCallback* const callbacks = g_callback_new();
  if (callbacks == nullptr) return false;
  if (add_callback(callbacks, func, data) != 0 ||
      g_hash_insert(conf->callbacks, owned_key.get(), callbacks) != 0) {
    g_callback_free(callbacks);
    return false;
  }
  owned_key.release();
  return true;
}

bool add_to_table(GConf* conf, const TableKey& key, GConfCallback func, void* data) {
  if (key.text() == nullptr) return false;
  GCallback* const callbacks = find_callbacks(conf, key.text());
  return callbacks != nullptr ? add_callback(callbacks, func, data) == 0
                              : add_list(conf, key.text(), func, data);
}

GCallback* callbacks_of(GConf* conf, const GConfChange& change) {
  // Most programs register none; then no key needs to be built.
  if (g_hash_count(conf->callbacks) == 0) return nullptr;
  const TableKey key(change.section, change.key);
  if (key.text() == nullptr) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't run callbacks for '%s'->'%s'.",
          change.section, change.key);
    return nullptr;
  }
  return find_callbacks(conf, key.text());
}

}  // namespace

void groundwork::run_callbacks(GConf* conf, const GConfChange& change, char* old_value) {
  if (GCallback* const callbacks = callbacks_of(conf, change); callbacks != nullptr) {
    GConfChange passed = change;
    // A callback may end its thread.
    with_cleanup(free_block, old_value, [&] { g_callback_execute(callbacks, &passed); });
  }
  std::free(old_value);
}

extern "C" int g_conf_register_callback(GConf* conf, const char* section, const char* key,
                                        GConfCallback func, void* data) {
  CHECK_ARG(conf != NULL, -1);
  CHECK_ARG(section != NULL, -1);
  CHECK_ARG(key != NULL, -1);
  CHECK_ARG(func != NULL, -1);
  if (!add_to_table(conf, TableKey(section, key), func, data)) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't register callback for '%s'->'%s'.",
          section, key);
    return -1;
  }
  return 0;
}
