// Callback lists and the registry of modules against a model: which functions run, in which
// order, with which data, and where an execution stops. Functions may remove entries while
// they run.
//
// SPDX-License-Identifier: MIT

#include <groundwork/callback.h>
#include <groundwork/log.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "fuzz/support/check.h"
#include "fuzz/support/input.h"

namespace {

char data_of[6];

std::string calls;  // a letter for the function and a digit for its data

void note(char function, const void* data) {
  calls += function;
  calls += data == nullptr
               ? '-'
               : static_cast<char>('0' + (static_cast<const char*>(data) - data_of));
}

// What the functions that remove themselves work on.
GCallback* executed_list = nullptr;
int executed_module = 0;

int go_on(void*, void* data) {
  note('a', data);
  return 0;
}
int go_on_too(void* arg, void* data) {
  REQUIRE(arg == &calls);
  note('b', data);
  return 0;
}
int stop(void*, void* data) {
  note('s', data);
  return -5;
}
int leave(void*, void* data) {
  note('l', data);
  if (executed_list != nullptr) {
    REQUIRE_EQUAL(g_callback_remove(executed_list, leave, data), 0);
  } else {
    REQUIRE_EQUAL(g_module_callback_cancel(executed_module, leave, data), 0);
  }
  return 0;
}

constexpr GCallbackFunc kFunctions[] = {go_on, go_on_too, stop, leave};
constexpr char kLetters[] = {'a', 'b', 's', 'l'};

struct Entry {
  int function;
  void* data;
  int priority;
};

class Model {
 public:
  void add(const Entry& entry) {
    const auto place =
        std::find_if(entries_.begin(), entries_.end(),
                     [&](const Entry& other) { return other.priority > entry.priority; });
    entries_.insert(place, entry);
  }

  void remove(int function, const void* data) {
    const auto found =
        std::find_if(entries_.begin(), entries_.end(), [&](const Entry& other) {
          return other.function == function && other.data == data;
        });
    if (found != entries_.end()) entries_.erase(found);
  }

  // What an execution calls, and its result. An entry that removes itself removes the first
  // of its kind, which is itself: those before it have removed themselves.
  int execute(std::string& expected) {
    for (size_t i = 0; i < entries_.size();) {
      const Entry entry = entries_[i];
      expected += kLetters[entry.function];
      expected +=
          entry.data == nullptr
              ? '-'
              : static_cast<char>('0' + (static_cast<const char*>(entry.data) - data_of));
      if (entry.function == 2) return -1;
      if (entry.function == 3) {
        remove(3, entry.data);
      } else {
        ++i;
      }
    }
    return 0;
  }

  size_t size() const { return entries_.size(); }

 private:
  std::vector<Entry> entries_;
};

Entry entry_from(fuzz::Input& input) {
  const uint8_t kind = input.byte();
  Entry entry{};
  entry.function = kind & 3;
  entry.data = (kind >> 2) % 7 == 6 ? nullptr : &data_of[(kind >> 2) % 7];
  entry.priority =
      (kind & 0x80) != 0 ? input.int32() : static_cast<int8_t>(input.byte()) / 16;
  return entry;
}

void use_list(fuzz::Input& input) {
  GCallback* const list = g_callback_new();
  REQUIRE(list != nullptr);
  Model model;
  while (!input.empty()) {
    const uint8_t operation = input.byte();
    const Entry entry = entry_from(input);
    const GCallbackFunc function = kFunctions[entry.function];
    if (operation % 4 < 2 && model.size() < 100) {
      REQUIRE_EQUAL(g_callback_add(list, function, entry.data, entry.priority), 0);
      model.add(entry);
    } else if (operation % 4 == 2) {
      REQUIRE_EQUAL(g_callback_remove(list, function, entry.data), 0);
      model.remove(entry.function, entry.data);
    } else {
      executed_list = list;
      calls.clear();
      const int result = g_callback_execute(list, &calls);
      std::string expected;
      REQUIRE_EQUAL(result, model.execute(expected));
      REQUIRE_EQUAL(calls, expected);
    }
    REQUIRE_EQUAL(g_callback_add(list, nullptr, entry.data, 0), -1);
    REQUIRE_EQUAL(g_callback_remove(nullptr, function, entry.data), -1);
  }
  g_callback_free(list);
}

// The registry, and the model of each list in it.
class Modules {
 public:
  Modules() { executed_list = nullptr; }
  ~Modules() {
    if (has_registry_) g_module_cleanup();
  }

  void operate(fuzz::Input& input) {
    const uint8_t operation = input.byte();
    const int module = module_from(input);
    const Entry entry = entry_from(input);
    switch (operation % 8) {
      case 0:
      case 1:
      case 2:
        return add(module, entry);
      case 3:
        return cancel(module, entry);
      case 4:
      case 5:
        return execute(module);
      case 6:
        if (has_registry_) return;  // would be lost
        REQUIRE_EQUAL(g_module_init(), 0);
        has_registry_ = true;
        return;
      default:
        cancel_null(module);
        if (operation >= 0xe0) clean_up();
    }
  }

 private:
  // A few that meet in a table, the ends of the range, and some at random.
  static int module_from(fuzz::Input& input) {
    const uint8_t id = input.byte();
    if (id % 8 == 7) return input.int32();
    if (id % 8 == 6) return (id & 8) != 0 ? INT32_MAX : INT32_MIN;
    return (id >> 4) * 16 - 32;
  }

  bool has_list(int module) const { return models_.count(module) != 0; }

  void add(int module, const Entry& entry) {
    REQUIRE_EQUAL(g_module_callback_register(module, kFunctions[entry.function], entry.data,
                                             entry.priority),
                  has_registry_ ? 0 : -1);
    if (has_registry_) models_[module].add(entry);
  }

  // Without a registry the id comes back.
  void cancel(int module, const Entry& entry) {
    REQUIRE_EQUAL(g_module_callback_cancel(module, kFunctions[entry.function], entry.data),
                  has_registry_ ? 0 : module);
    if (has_list(module)) models_[module].remove(entry.function, entry.data);
  }

  // A list that is there checks the function, an absent one does not.
  void cancel_null(int module) const {
    REQUIRE_EQUAL(g_module_callback_cancel(module, nullptr, nullptr),
                  !has_registry_     ? module
                  : has_list(module) ? -1
                                     : 0);
  }

  void execute(int module) {
    executed_module = module;
    calls.clear();
    const int result = g_module_callback_execute(module, &calls);
    std::string expected;
    REQUIRE_EQUAL(result, has_list(module) ? models_[module].execute(expected) : 0);
    REQUIRE_EQUAL(calls, expected);
  }

  void clean_up() {
    g_module_cleanup();
    has_registry_ = false;
    models_.clear();
  }

  std::map<int, Model> models_;
  bool has_registry_ = false;
};

void use_modules(fuzz::Input& input) {
  Modules modules;
  while (!input.empty()) modules.operate(input);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  g_debug_set_level2(99);
  (input.byte() & 1) != 0 ? use_list(input) : use_modules(input);
  return 0;
}
