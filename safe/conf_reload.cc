// Reloading a file: first everything that can fail, then all changes together under the
// conf's mutex, then the callbacks.
//
// SPDX-License-Identifier: MIT

#include <groundwork/callback.h>
#include <groundwork/safe.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <pthread.h>

#include "conf/line.h"
#include "conf/model.h"
#include "core/byte_array.h"
#include "core/cancellation.h"
#include "core/check.h"
#include "core/owned.h"
#include "safe/conf_file.h"
#include "safe/conf_table.h"
#include "safe/failure.h"
#include "thread/mutex_lock.h"

using namespace groundwork;

namespace {

using Id = ConfTable::Id;
using Item = ConfTable::Item;

GConfSection* section_of(const Item& item) {
  return static_cast<GConfSection*>(item.record);
}

GConfEntry* entry_of(const Item& item) {
  return static_cast<GConfEntry*>(item.record);
}

// Null when memory is exhausted.
char* copy_of(std::string_view text) {
  auto* const copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

// The changes to pass to callbacks, as copies, since a callback may change and remove
// anything. Each change is four strings: section, key, value, and the name of its callbacks
// in the table.
class Notices {
 public:
  // False when memory is exhausted.
  bool add(std::string_view section, std::string_view key, std::string_view value) {
    return put(section) && put(key) && put(value) && text_.add(section) && text_.add(".") &&
           put(key);
  }

  struct Block {
    char* begin;  // null for none
    const char* end;
  };
  // For the caller to free.
  Block release() {
    const char* const end = text_.data() + text_.size();
    return {text_.release(), end};
  }

 private:
  bool put(std::string_view text) { return text_.add(text) && text_.add({"\0", 1}); }

  ByteArray text_;
};

// The changes that the file makes to the conf. To be used with the conf's mutex held.
class Changes {
 public:
  Changes() = default;
  ~Changes();
  Changes(const Changes&) = delete;
  Changes& operator=(const Changes&) = delete;

  // Finds the changes and allocates all the memory that they need, without changing the
  // conf. False when memory is exhausted.
  bool prepare(const GConf* conf, std::string_view text);

  // Makes the changes; call it once.
  void apply(GConf* conf);

  int count() const { return count_; }
  Notices::Block release_notices() { return notices_.release(); }

 private:
  // A section or key in the file.
  struct Step {
    Id id;
    void* made;  // the node of a new one, the new value of a key, or null
  };

  bool find(std::string_view text);
  bool make(Step& step);
  bool note(const Item& key, std::string_view value);
  bool is_removed(Id id) { return id < known_ && table_[id].line == nullptr; }
  bool is_readable(Id id);

  ConfTable table_;
  Id known_ = 0;       // the number of items that the conf has
  Array<Step> steps_;  // in the order of the file
  Notices notices_;
  int count_ = 0;
  bool has_callbacks_ = false;
};

Changes::~Changes() {
  for (const Step& step : steps_) {
    const Item& item = table_[step.id];
    if (step.made == nullptr) continue;
    if (item.record != nullptr) {
      std::free(step.made);
    } else if (item.is_section()) {
      free_section_node(static_cast<GList*>(step.made));
    } else {
      free_entry_node(static_cast<GList*>(step.made));
    }
  }
}

bool Changes::prepare(const GConf* conf, std::string_view text) {
  // Most programs register no callbacks.
  has_callbacks_ = g_hash_count(conf->callbacks) != 0;
  table_.take(conf);
  known_ = table_.size();
  if (!find(text)) return false;
  for (Step& step : steps_) {
    if (!make(step)) return false;
  }
  for (Id id = 0; id < known_; ++id) {
    const Item& item = table_[id];
    if (!is_removed(id) || item.is_section() || !is_readable(id)) continue;
    if (!note(item, {})) return false;
  }
  return !table_.is_exhausted();
}

// Returns whether look-ups find this key: not a program's own record of a name that exists
// already.
bool Changes::is_readable(Id id) {
  if (!table_.has_duplicates()) return true;
  const std::string_view section = table_[table_[id].section].name;
  const Id found = table_.find(ConfTable::kNone, section, ConfTable::kNone);
  return table_.find(found, table_[id].name, ConfTable::kNone) == id;
}

bool Changes::find(std::string_view text) {
  TableLines line(table_, text, true);
  while (line.advance()) {
    Item& item = table_[line.id()];
    if (item.line == nullptr && !steps_.add({line.id(), nullptr})) return false;
    item.line = line.begin();
    item.found = line.value();
  }
  return !table_.is_exhausted();
}

// Creates what the step adds.
bool Changes::make(Step& step) {
  const Item& item = table_[step.id];
  if (item.is_section()) {
    if (item.record != nullptr) return true;
    step.made = new_section_node(item.name);
    return step.made != nullptr;
  }
  if (item.record == nullptr) {
    step.made = new_entry_node(item.name, item.found);
  } else if (item.has_value(item.found)) {
    return true;
  } else {
    step.made = copy_of(item.found);
  }
  return step.made != nullptr && note(item, item.found);
}

bool Changes::note(const Item& key, std::string_view value) {
  ++count_;
  return !has_callbacks_ || notices_.add(table_[key.section].name, key.name, value);
}

void Changes::apply(GConf* conf) {
  for (const Step& step : steps_) {
    Item& item = table_[step.id];
    auto* const node = static_cast<GList*>(step.made);
    if (node == nullptr) continue;
    if (item.record != nullptr) {
      std::free(exchange_value(entry_of(item), static_cast<char*>(step.made)));
    } else if (item.is_section()) {
      append_section(conf, node);
      item.record = node->data;
    } else {
      append_entry(section_of(table_[item.section]), node);
    }
  }
  steps_.cut(0);
  for (Id id = 0; id < known_; ++id) {
    if (!is_removed(id)) continue;
    const Item& item = table_[id];
    if (item.is_section()) {
      remove_section(conf, section_of(item));
    } else if (!is_removed(item.section)) {
      remove_entry(section_of(table_[item.section]), entry_of(item));
    }
  }
}

// Makes the conf equal to the text. Returns the number of changes, or -1 with errno.
int merge(GConf* conf, std::string_view text, Notices::Block& notices) {
  const BriefLock lock(conf->mutex);
  if (is_dirty(conf)) return fail(EBUSY);
  Changes changes;
  if (!changes.prepare(conf, text)) return fail(ENOMEM);
  changes.apply(conf);
  notices = changes.release_notices();
  return changes.count();
}

int reload(GConf* conf, Notices::Block& notices) {
  const CancellationHeld held;
  const ConfFileLock lock(conf);
  if (is_dirty(conf)) return fail(EBUSY);
  ConfFile file;
  if (const int error = file.read(AT_FDCWD, conf->filename); error != 0) return fail(error);
  const std::string_view bytes = file.bytes();
  // A NUL in the file ends its text.
  const std::string_view text = between(bytes, 0, position_of(bytes, '\0'));
  const int count = merge(conf, text, notices);
  if (count != -1) set_file_content(conf, content_of(bytes));
  return count;
}

void run_callbacks(GConf* conf, const Notices::Block& notices) {
  for (const char* at = notices.begin; at != notices.end;) {
    const auto next = [&at] {
      const char* const text = at;
      at += std::strlen(at) + 1;
      return text;
    };
    GConfChange change{};
    change.section = next();
    change.key = next();
    change.value = next();
    // Looked up here, since an earlier callback may have registered it.
    void* const callbacks = g_hash_find(conf->callbacks, next());
    if (callbacks != nullptr)
      g_callback_execute(static_cast<GCallback*>(callbacks), &change);
  }
}

}  // namespace

extern "C" LEFT_BY_CANCELLATION int g_conf_reload(GConf* conf) {
  CHECK_ARG(conf != NULL, fail(EINVAL));
  Notices::Block notices{};
  const int count = reload(conf, notices);
  // A callback may end its thread; cancellation takes effect after all have run.
  const CancellationHeld held;
  with_cleanup(free_block, notices.begin, [&] { run_callbacks(conf, notices); });
  std::free(notices.begin);
  return count;
}
