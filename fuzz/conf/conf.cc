// Loads a configuration, changes it, writes it back and loads it again, against a model of
// the file's format.
//
// An input is the file's text up to the first byte 1e ("-" for a file that does not exist),
// then operations separated by 1e bytes: a letter, then fields separated by 1f bytes.
//
// SPDX-License-Identifier: MIT

#include <groundwork/conf.h>
#include <groundwork/log.h>

#include <cctype>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include "fuzz/conf/conf_lists.h"
#include "fuzz/support/check.h"
#include "fuzz/support/directory.h"
#include "fuzz/support/input.h"

namespace {

bool same_name(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    const auto lower = [](char c) {
      return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

std::string trimmed(const std::string& text) {
  constexpr std::string_view kBlank = " \t\n\v\f\r";
  const size_t first = text.find_first_not_of(kBlank);
  if (first == text.npos) return "";
  return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

struct Entry {
  std::string key;
  std::string value;
};

struct Section {
  std::string name;
  std::vector<Entry> entries;

  Entry* find(const std::string& key) {
    for (Entry& entry : entries) {
      if (same_name(entry.key, key)) return &entry;
    }
    return nullptr;
  }
  void set(const std::string& key, const std::string& value) {
    if (Entry* const entry = find(trimmed(key))) {
      entry->value = trimmed(value);
    } else {
      entries.push_back({trimmed(key), trimmed(value)});
    }
  }
};

struct Model {
  std::vector<Section> sections;
  bool dirty = false;

  void load(const std::string& file) {
    *this = {};
    const std::string text(file.c_str());  // a NUL ends it
    size_t current = SIZE_MAX;
    for (size_t start = 0; start <= text.size();) {
      const size_t end = std::min(text.find('\n', start), text.size());
      const std::string line = text.substr(start, end - start);
      start = end + 1;
      const size_t equals = line.find('=');
      if (line.starts_with('[')) {
        const size_t bracket = line.find(']');
        if (bracket != line.npos) current = find_or_add(line.substr(1, bracket - 1));
      } else if (!line.starts_with('#') && equals != line.npos && current != SIZE_MAX) {
        sections[current].set(line.substr(0, equals), line.substr(equals + 1));
      }
    }
  }

  std::string file() const {
    std::string text;
    for (const Section& section : sections) {
      if (section.entries.empty()) continue;
      text += "[" + section.name + "]\n";
      for (const Entry& entry : section.entries) {
        text += entry.key + "=" + entry.value + "\n";
      }
      text += "\n";
    }
    return text;
  }

  Section* find(const std::string& name) {
    for (Section& section : sections) {
      if (same_name(section.name, name)) return &section;
    }
    return nullptr;
  }
  size_t find_or_add(const std::string& name) {
    if (find(name) == nullptr) sections.push_back({name, {}});
    return static_cast<size_t>(find(name) - sections.data());
  }
  // Empty if there is none.
  std::string value(const std::string& section, const std::string& key) {
    Section* const found = find(section);
    Entry* const entry = found != nullptr ? found->find(key) : nullptr;
    return entry != nullptr ? entry->value : "";
  }
};

struct Watch {
  std::string name;  // section and key, joined as the table of callbacks does
  int result;
};

struct Firing {
  const Watch* watch;
  std::string section, key, value;
  bool operator==(const Firing&) const = default;
};

std::vector<Firing> fired;

int note_change(const GConfChange* change, void* data) {
  const auto* const watch = static_cast<const Watch*>(data);
  fired.push_back({watch, change->section, change->key, change->value});
  return watch->result;
}

int clamped(long long number) {
  return static_cast<int>(number < INT_MIN ? INT_MIN : number > INT_MAX ? INT_MAX : number);
}

// Equal bit for bit, or neither is a number.
template <typename Number>
bool same_number(Number a, Number b) {
  return std::memcmp(&a, &b, sizeof a) == 0 || (a != a && b != b);
}

class Session {
 public:
  Session(std::string path, const std::optional<std::string>& text)
      : path_(std::move(path)) {
    unlink(path_.c_str());
    if (text.has_value()) fuzz::write_file(path_, *text);
    file_ = text;
    watches_.reserve(8);  // callbacks point to them
    open();
  }

  void run(fuzz::Input operation) {
    const auto letter = static_cast<char>(operation.byte());
    // As C strings: cut at a NUL.
    const std::string section = operation.field('\x1f').c_str();
    const std::string key = operation.field('\x1f').c_str();
    const std::string value = operation.field('\x1f').c_str();
    switch (letter) {
      case 'w':
        g_conf_write_string(conf_, section.c_str(), key.c_str(), value.c_str());
        model_write(section, key, value);
        break;
      case 'i':
      case 'b': {
        const int number = clamped(std::strtoll(value.c_str(), nullptr, 10));
        if (letter == 'i') {
          g_conf_write_int(conf_, section.c_str(), key.c_str(), number);
          model_write(section, key, std::to_string(number));
        } else {
          g_conf_write_boolean(conf_, section.c_str(), key.c_str(), number);
          model_write(section, key, number != 0 ? "TRUE" : "FALSE");
        }
        break;
      }
      case 'f':
      case 'd':
        write_real(letter, section, key, std::strtod(value.c_str(), nullptr));
        break;
      case 'r':
        g_conf_remove_key(conf_, section.c_str(), key.c_str());
        remove_key(section, key);
        break;
      case 's':
        g_conf_remove_section(conf_, section.c_str());
        if (const Section* const found = model_.find(section)) {
          model_.sections.erase(model_.sections.begin() + (found - model_.sections.data()));
          model_.dirty = true;
        }
        break;
      case 'c':
        if (watches_.size() == watches_.capacity()) break;
        watches_.push_back({section + "." + key, value.empty() ? 0 : 1});
        REQUIRE_EQUAL(g_conf_register_callback(conf_, section.c_str(), key.c_str(),
                                               note_change, &watches_.back()),
                      0);
        break;
      case 'y':
        g_conf_sync(conf_);
        model_sync();
        break;
      case 'o':
        close();
        open();
        break;
      default:
        break;
    }
    compare();
    compare_reads(section, key);
  }

  void compare() {
    REQUIRE_EQUAL(conf_->dirty, model_.dirty ? 1 : 0);
    fuzz::compare_lists(conf_, model_.sections);
    REQUIRE(fired == expected_);
  }

  void close() {
    REQUIRE_EQUAL(g_conf_close(conf_), 0);
    watches_.clear();
    model_sync();
  }

 private:
  void open() {
    conf_ = g_conf_open(path_.c_str());
    REQUIRE(conf_ != nullptr);
    REQUIRE_EQUAL(std::string(conf_->filename), path_);
    model_.load(file_.value_or(""));
    compare();
  }

  void model_sync() {
    if (model_.dirty) file_ = model_.file();
    model_.dirty = false;
    const std::optional<std::string> written = fuzz::read_file(path_);
    REQUIRE_EQUAL(written.has_value(), file_.has_value());
    REQUIRE_EQUAL(written.value_or(""), file_.value_or(""));
  }

  void model_write(const std::string& section, const std::string& key,
                   const std::string& value) {
    if (model_.value(section, key) == value) return;
    model_.sections[model_.find_or_add(section)].set(key, value);
    model_.dirty = true;
    for (const Watch& watch : watches_) {
      if (watch.name != section + "." + key) continue;
      expected_.push_back({&watch, section, key, value});
      if (watch.result != 0) break;
    }
  }

  void write_real(char letter, const std::string& section, const std::string& key,
                  double number) {
    char text[64];
    if (letter == 'f') {
      const auto narrow = static_cast<float>(number);
      g_conf_write_float(conf_, section.c_str(), key.c_str(), narrow);
      number = static_cast<double>(narrow);
    } else {
      g_conf_write_double(conf_, section.c_str(), key.c_str(), number);
    }
    std::snprintf(text, sizeof text, "%g", number);
    model_write(section, key, text);
  }

  void remove_key(const std::string& section, const std::string& key) {
    Section* const found = model_.find(section);
    Entry* const entry = found != nullptr ? found->find(key) : nullptr;
    if (entry == nullptr) return;
    found->entries.erase(found->entries.begin() + (entry - found->entries.data()));
    model_.dirty = true;
  }

  void compare_reads(const std::string& section, const std::string& key) {
    const char* const s = section.c_str();
    const char* const k = key.c_str();
    const std::string value = model_.value(section, key);
    const bool has = !value.empty();
    REQUIRE_EQUAL(std::string(g_conf_read_string(conf_, s, k, "a default")),
                  has ? value : "a default");
    REQUIRE_EQUAL(g_conf_read_int(conf_, s, k, -3),
                  has ? clamped(std::strtoll(value.c_str(), nullptr, 10)) : -3);
    REQUIRE_EQUAL(g_conf_read_boolean(conf_, s, k, 7), has ? same_name(value, "TRUE") : 7);
    const double number = has ? std::strtod(value.c_str(), nullptr) : 0.5;
    REQUIRE(same_number(g_conf_read_double(conf_, s, k, 0.5), number));
    REQUIRE(same_number(g_conf_read_float(conf_, s, k, 0.5F), static_cast<float>(number)));

    GConfSection* const found = g_find_section(conf_, s);
    Section* const expected = model_.find(section);
    REQUIRE_EQUAL(found != nullptr, expected != nullptr);
    if (found == nullptr) return;
    REQUIRE_EQUAL(std::string(found->name), expected->name);
    const GConfEntry* const line = g_find_line(found, k);
    const Entry* const entry = expected->find(key);
    REQUIRE_EQUAL(line != nullptr, entry != nullptr);
    if (line != nullptr) REQUIRE_EQUAL(std::string(line->key), entry->key);
  }

  std::string path_;
  std::optional<std::string> file_;  // what it should hold
  GConf* conf_ = nullptr;
  Model model_;
  std::vector<Watch> watches_;
  std::vector<Firing> expected_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const fuzz::Directory directory;
  g_debug_set_level2(99);
  fired.clear();
  fuzz::Input input(data, size);
  const std::string text = input.field('\x1e');
  Session session(directory / "x.conf",
                  text == "-" ? std::nullopt : std::optional<std::string>(text));
  while (!input.empty()) {
    const std::string operation = input.field('\x1e');
    session.run(
        fuzz::Input(reinterpret_cast<const uint8_t*>(operation.data()), operation.size()));
  }
  session.close();
  return 0;
}
