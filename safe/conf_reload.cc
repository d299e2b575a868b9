// Taking in what a file holds now: first everything that can fail, then the changes, in one
// go under the conf's mutex, then the callbacks.
//
// SPDX-License-Identifier: MIT

#include <groundwork/callback.h>
#include <groundwork/safe.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <pthread.h>

#include "conf/model.h"
#include "conf/trim.h"
#include "core/cancellation.h"
#include "core/check.h"
#include "core/owned.h"
#include "safe/conf_array.h"
#include "safe/conf_file.h"
#include "safe/conf_keys.h"
#include "thread/mutex_lock.h"

using namespace groundwork;

namespace {

using Id = ConfKeys::Id;
constexpr Id kNone = ConfKeys::kNone;

// A NUL in the file ends its text.
std::string_view text_of(std::string_view bytes) {
  if (bytes.empty()) return bytes;
  const void* const nul = std::memchr(bytes.data(), '\0', bytes.size());
  if (nul == nullptr) return bytes;
  return {bytes.data(), static_cast<size_t>(static_cast<const char*>(nul) - bytes.data())};
}

// Null when memory is exhausted.
char* copy_of(std::string_view text) {
  auto* const copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy == nullptr) return nullptr;
  if (!text.empty()) std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  return copy;
}

// What the callbacks will be told, one change after the other, in copies: a callback may
// change and remove whatever it likes. Each change is four strings: section, key and value,
// and the name that its callbacks have in the table.
class Notices {
 public:
  // False when memory is exhausted.
  bool add(std::string_view section, std::string_view key, std::string_view value) {
    return put(section) && put(key) && put(value) &&
           text_.add(section.data(), section.size()) && text_.add('.') && put(key);
  }

  struct Block {
    char* begin;  // null for none
    const char* end;
  };
  // For the caller to free.
  Block release() {
    const char* const end = text_.end();
    return {text_.release(), end};
  }

 private:
  bool put(std::string_view text) {
    return text_.add(text.data(), text.size()) && text_.add('\0');
  }

  Array<char> text_;
};

// What the file changes in the conf. To be used with the conf's mutex held throughout.
class Changes {
 public:
  Changes(GConf* conf, const ConfKeys& file) : conf_(conf), file_(file) {}
  ~Changes();
  Changes(const Changes&) = delete;
  Changes& operator=(const Changes&) = delete;

  // Finds the changes and gets all the memory that they need; the conf stays as it is.
  // False when memory is exhausted.
  bool prepare();

  // Makes them; once.
  void apply();

  int count() const { return count_; }
  Notices::Block release_notices() { return notices_.release(); }

 private:
  struct Step {
    enum Kind { kAddSection, kAddEntry, kReplaceValue, kRemoveEntry, kRemoveSection } kind;
    GConfSection* section;
    GConfEntry* entry;
    GList* node;  // of what is added
    char* value;  // that replaces the entry's
  };

  bool add(const Step& step);
  bool prepare_section(Id section);
  bool prepare_key(const ConfKeys::Key& key);
  bool prepare_removals();
  bool prepare_removals_in(GConfSection* section, Id id);
  bool note(const GConfSection* section, std::string_view key, std::string_view value);
  static void give_back(const Step& step);

  GConf* const conf_;
  const ConfKeys& file_;
  int count_ = 0;
  Array<GConfSection*> sections_;  // of the conf, by the file's numbers
  Array<Step> steps_;
  Notices notices_;
};

Changes::~Changes() {
  for (const Step& step : steps_) give_back(step);
}

void Changes::give_back(const Step& step) {
  if (step.kind == Step::kAddSection) free_section_node(step.node);
  if (step.kind == Step::kAddEntry) free_entry_node(step.node);
  std::free(step.value);
}

// Owns what the step has.
bool Changes::add(const Step& step) {
  if (steps_.add(step)) return true;
  give_back(step);
  return false;
}

bool Changes::prepare() {
  for (Id id = 0; id < file_.section_count(); ++id) {
    if (!prepare_section(id)) return false;
  }
  for (Id id = 0; id < file_.key_count(); ++id) {
    if (!prepare_key(file_.key_at(id))) return false;
  }
  return prepare_removals() && !file_.is_exhausted();
}

bool Changes::prepare_section(Id id) {
  const std::string_view name = file_.section_at(id).name;
  GConfSection* section = find_section(conf_, name);
  if (section == nullptr) {
    GList* const node = new_section_node(name);
    if (node == nullptr || !add({Step::kAddSection, nullptr, nullptr, node, nullptr})) {
      return false;
    }
    section = section_in(node);
  }
  return sections_.add(section);
}

bool Changes::prepare_key(const ConfKeys::Key& key) {
  GConfSection* const section = sections_[key.section];
  if (GConfEntry* const entry = find_entry(section, key.name); entry != nullptr) {
    if (trimmed(entry->value) == key.value) return true;
    char* const value = copy_of(key.value);
    return value != nullptr && add({Step::kReplaceValue, section, entry, nullptr, value}) &&
           note(section, entry->key, key.value);
  }
  GList* const node = new_entry_node(key.name, key.value);
  return node != nullptr && add({Step::kAddEntry, section, nullptr, node, nullptr}) &&
         note(section, key.name, key.value);
}

bool Changes::prepare_removals() {
  Id last = kNone;
  for (const GList* node = conf_->sections; node != nullptr; node = node->next) {
    GConfSection* const section = section_in(node);
    const Id id = file_.find_section(section->name, last + 1);
    if (!prepare_removals_in(section, id)) return false;
    if (id != kNone) {
      last = id;
    } else if (!add({Step::kRemoveSection, section, nullptr, nullptr, nullptr})) {
      return false;
    }
  }
  return true;
}

// `id` is the file's number of the section; kNone for one that goes as a whole.
bool Changes::prepare_removals_in(GConfSection* section, Id id) {
  Id expected = id != kNone ? file_.section_at(id).first_key : 0;
  for (const GList* node = section->entries; node != nullptr; node = node->next) {
    GConfEntry* const entry = entry_in(node);
    const Id key = id != kNone ? file_.find_key(id, entry->key, expected) : kNone;
    if (key != kNone) {
      expected = key + 1;
    } else if ((id != kNone &&
                !add({Step::kRemoveEntry, section, entry, nullptr, nullptr})) ||
               !note(section, entry->key, {})) {
      return false;
    }
  }
  return true;
}

bool Changes::note(const GConfSection* section, std::string_view key,
                   std::string_view value) {
  ++count_;
  // Most programs register no callbacks.
  return g_hash_count(conf_->callbacks) == 0 || notices_.add(section->name, key, value);
}

void Changes::apply() {
  for (const Step& step : steps_) {
    switch (step.kind) {
      case Step::kAddSection:
        append_section(conf_, step.node);
        break;
      case Step::kAddEntry:
        append_entry(step.section, step.node);
        break;
      case Step::kReplaceValue:
        std::free(exchange_value(step.entry, step.value));
        break;
      case Step::kRemoveEntry:
        remove_entry(step.section, step.entry);
        break;
      case Step::kRemoveSection:
        remove_section(conf_, step.section);
        break;
    }
  }
  steps_.cut(0);
}

// Makes the conf that of the file's keys. The number of changes, or -1 with errno.
int take_in(GConf* conf, const ConfKeys& file, Notices::Block& notices) {
  const BriefLock lock(conf->mutex);
  if (is_dirty(conf)) {
    errno = EBUSY;
    return -1;
  }
  Changes changes(conf, file);
  if (!changes.prepare()) {
    errno = ENOMEM;
    return -1;
  }
  changes.apply();
  notices = changes.release_notices();
  return changes.count();
}

int reload(GConf* conf, Notices::Block& notices) {
  const CancellationHeld held;
  const ConfFileLock lock(conf);
  ConfFile file;
  ConfKeys keys;
  int error = is_dirty(conf) ? EBUSY : file.read(conf->filename);
  if (error == 0 && !read_conf_text(keys, text_of(file.bytes()))) error = ENOMEM;
  if (error != 0) {
    errno = error;
    return -1;
  }
  const int count = take_in(conf, keys, notices);
  if (count != -1) set_file_content(conf, content_of(file.bytes()));
  return count;
}

// Owns the block. A callback may end its thread; that the thread was cancelled it learns
// when all have run.
[[gnu::noinline]] LEFT_BY_CANCELLATION void run_callbacks(GConf* conf,
                                                          const Notices::Block& notices) {
  const CancellationHeld held;
  pthread_cleanup_push(std::free, notices.begin);
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
    // Looked up only now: an earlier callback may have registered it.
    void* const callbacks = g_hash_find(conf->callbacks, next());
    if (callbacks != nullptr)
      g_callback_execute(static_cast<GCallback*>(callbacks), &change);
  }
  pthread_cleanup_pop(1);
}

}  // namespace

extern "C" LEFT_BY_CANCELLATION int g_conf_reload(GConf* conf) {
  CHECK_ARG(conf != NULL, (errno = EINVAL, -1));
  Notices::Block notices{};
  const int count = reload(conf, notices);
  if (notices.begin != nullptr) run_callbacks(conf, notices);
  return count;
}
