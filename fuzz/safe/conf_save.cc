// Changes, saves and reloads configurations against a model that works differently: line by
// line, without any index.
//
// A byte selects a piece of text or a short name, so that most inputs are meaningful:
// pieces of the file's text up to a byte ff, then operations, each with the bytes that it
// needs.
//
// SPDX-License-Identifier: MIT

#include <groundwork/conf.h>
#include <groundwork/log.h>
#include <groundwork/safe.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <map>
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

using Texts = std::vector<std::string>;

std::string lower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return text;
}

std::string trimmed(const std::string& text) {
  constexpr std::string_view kBlank = " \t\n\v\f\r";
  const size_t first = text.find_first_not_of(kBlank);
  if (first == text.npos) return "";
  return text.substr(first, text.find_last_not_of(kBlank) - first + 1);
}

// --- Texts and names made of few bytes.

constexpr std::string_view kPieces[] = {
    "\n",    "\n",      "\n",    "\r\n",    "\r",        "=",       "=",    " ",
    "\t",    "#",       "[",     "]",       "[a]",       "[B]",     "[]",   "[c]d",
    "k=1\n", "l = 2\n", "m=",    "K=3\r\n", " n\t=\t4 ", "k",       "l",    "x",
    "1",     "\xff",    "# c\n", "\n\n",    "[a]\n",     "[b]\r\n", "=v\n", "\v",
};
constexpr std::string_view kSections[] = {"a", "b", "A", "", "c", "new", "x]", "y\nz"};
constexpr std::string_view kKeys[] = {"k", "l",   "m",  "K",   "n",   "",     "o", "p",
                                      "q", " r ", "#k", "[k]", "k=l", "k\nl", "x", "L"};
constexpr std::string_view kValues[] = {"1",   "2",          "3",    "",      "v",    " w ",
                                        "a b", "x=y",        "[a]",  "#",     "a\rb", "\r",
                                        "4",   "two\nlines", "\xff", "1\n[b]"};

template <size_t N>
std::string pick(const std::string_view (&table)[N], fuzz::Input& input) {
  return std::string(table[input.byte() % N]);
}

std::string pick_text(fuzz::Input& input) {
  std::string text;
  while (!input.empty()) {
    const uint8_t byte = input.byte();
    if (byte == 0xff) break;
    if (byte == 0xfe) {
      text += '\0';
    } else {
      text += kPieces[byte % std::size(kPieces)];
    }
  }
  return text;
}

// --- The model of a configuration.

struct Entry {
  std::string key, value;
};

struct Section {
  std::string name;
  std::vector<Entry> entries;

  Entry* find(const std::string& key) {
    for (Entry& entry : entries) {
      if (lower(entry.key) == lower(key)) return &entry;
    }
    return nullptr;
  }
};

// A line of a text and what loading takes it for.
struct Line {
  enum Kind { kOther, kHeader, kEntry } kind = kOther;
  std::string body, end;  // as they are
  std::string section;    // that it opens, or belongs to
  std::string key, value;
};

std::vector<Line> lines_of(const std::string& text) {
  std::vector<Line> lines;
  std::optional<std::string> section;
  for (size_t start = 0; start < text.size();) {
    Line line;
    const size_t newline = text.find('\n', start);
    line.body = text.substr(start, newline - start);
    start = newline == text.npos ? text.size() : newline + 1;
    const size_t bracket = line.body.find(']');
    const size_t equals = line.body.find('=');
    if (line.body.starts_with('[')) {
      if (bracket != line.body.npos) {
        line.kind = Line::kHeader;
        section = line.body.substr(1, bracket - 1);
      }
    } else if (!line.body.starts_with('#') && equals != line.body.npos && section) {
      line.kind = Line::kEntry;
      line.key = trimmed(line.body.substr(0, equals));
      line.value = trimmed(line.body.substr(equals + 1));
    }
    line.section = section.value_or("");
    if (newline != text.npos) {
      line.end = "\n";
      if (line.body.ends_with('\r')) {
        line.body.pop_back();
        line.end = "\r\n";
      }
    }
    lines.push_back(line);
  }
  return lines;
}

struct Model {
  std::vector<Section> sections;

  Section* find(const std::string& name) {
    for (Section& section : sections) {
      if (lower(section.name) == lower(name)) return &section;
    }
    return nullptr;
  }
  Entry* find(const std::string& section, const std::string& key) {
    Section* const found = find(section);
    return found != nullptr ? found->find(key) : nullptr;
  }
  Section& need(const std::string& name) {
    if (find(name) == nullptr) sections.push_back({name, {}});
    return *find(name);
  }
  void set(const std::string& section, const std::string& key, const std::string& value) {
    Section& into = need(section);
    if (Entry* const entry = into.find(key)) {
      entry->value = value;
    } else {
      into.entries.push_back({key, value});
    }
  }

  // What reading shows.
  std::map<std::pair<std::string, std::string>, std::string> readings() const {
    std::map<std::pair<std::string, std::string>, std::string> all;
    for (const Section& section : sections) {
      for (const Entry& entry : section.entries) {
        all[{lower(section.name), lower(entry.key)}] = entry.value;
      }
    }
    return all;
  }
};

Model loaded(const std::string& bytes) {
  Model model;
  for (const Line& line : lines_of(bytes.substr(0, bytes.find('\0')))) {
    if (line.kind == Line::kHeader) model.need(line.section);
    if (line.kind == Line::kEntry) model.set(line.section, line.key, line.value);
  }
  return model;
}

bool is_same(const std::string& one, const std::string& other) {
  return lower(one) == lower(other);
}

// The last line of a section, its header or an entry; null where it has none.
Line* last_of(std::vector<Line>& lines, const Section& section) {
  Line* last = nullptr;
  for (Line& line : lines) {
    if (line.kind != Line::kOther && is_same(line.section, section.name)) last = &line;
  }
  return last;
}

// The last entry of that key, whose value holds; null where there is none.
Line* entry_of(std::vector<Line>& lines, const Section& section, const Entry& entry) {
  Line* found = nullptr;
  for (Line& line : lines) {
    if (line.kind == Line::kEntry && is_same(line.section, section.name) &&
        is_same(line.key, entry.key)) {
      found = &line;
    }
  }
  return found;
}

// The line with another value, and the blanks before it kept.
std::string with_value(const std::string& body, const std::string& value) {
  size_t begin = body.find('=') + 1;
  while (begin < body.size() &&
         std::string_view(" \t\v\f\r").find(body[begin]) != std::string_view::npos) {
    ++begin;
  }
  return body.substr(0, begin) + value;
}

bool is_in(const Line& line, Model& model) {
  if (line.kind == Line::kHeader) return model.find(line.section) != nullptr;
  if (line.kind == Line::kEntry) return model.find(line.section, line.key) != nullptr;
  return true;
}

// Whether the text is empty or ends with an empty line.
bool ends_empty(const std::string& text) {
  const std::vector<Line> lines = lines_of(text);
  return lines.empty() || (lines.back().body.empty() && !lines.back().end.empty());
}

// The text that a save makes of a text without NUL bytes.
std::string edited(const std::string& text, Model model) {
  std::vector<Line> lines = lines_of(text);
  const bool is_open = !lines.empty() && lines.back().end.empty();
  if (is_open) lines.back().end = lines.size() > 1 ? lines[lines.size() - 2].end : "\n";
  const std::string last_end = lines.empty() ? "\n" : lines.back().end;

  std::vector<bool> stays;
  for (const Line& line : lines) stays.push_back(is_in(line, model));
  std::vector<std::string> after(lines.size());
  std::string sections;
  for (const Section& section : model.sections) {
    const Line* const anchor = last_of(lines, section);
    std::string added;
    for (const Entry& entry : section.entries) {
      Line* const taken = entry_of(lines, section, entry);
      if (taken == nullptr) {
        added += entry.key + "=" + entry.value + (anchor ? anchor->end : last_end);
      } else if (taken->value != entry.value) {
        taken->body = with_value(taken->body, entry.value);
      }
    }
    if (anchor != nullptr) {
      after[static_cast<size_t>(anchor - lines.data())] += added;
    } else if (!added.empty()) {
      sections += last_end + "[" + section.name + "]" + last_end + added;
    }
  }

  std::string before_last, result;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (i + 1 == lines.size()) before_last = result;
    if (stays[i]) result += lines[i].body + lines[i].end;
    result += after[i];
  }
  if (!sections.empty()) {
    result += ends_empty(result) ? sections.substr(last_end.size()) : sections;
  }
  if (is_open && result != before_last) result.resize(result.size() - last_end.size());
  return result;
}

// The lines that a save must keep, without carriage returns at their ends: whether one of
// those belongs to the line end changes when a last line gets one.
Texts others(const std::string& text) {
  Texts kept;
  for (const Line& line : lines_of(text)) {
    const std::string body = line.body.substr(0, line.body.find_last_not_of('\r') + 1);
    if (line.kind == Line::kOther && !body.empty()) kept.push_back(body);
  }
  return kept;
}

// --- The library, compared with the model.

Texts reported;

int report(const GConfChange* change, void*) {
  reported.push_back(std::string(change->section) + "." + change->key + "=" +
                     change->value);
  return 0;
}

class Session {
 public:
  Session(std::string path, std::optional<std::string> bytes) : path_(std::move(path)) {
    put(std::move(bytes));
    conf_ = g_conf_open(path_.c_str());
    REQUIRE(conf_ != nullptr);
    if (file_) model_ = loaded(*file_);
    known_ = file_;
    for (const std::string_view section : kSections) {
      for (const std::string_view key : kKeys) {
        REQUIRE(g_conf_register_callback(conf_, std::string(section).c_str(),
                                         std::string(key).c_str(), report, nullptr) == 0);
      }
    }
    compare();
  }
  ~Session() {
    conf_->dirty = 0;
    g_conf_close(conf_);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void run(fuzz::Input& input) {
    switch (input.byte() % 16) {
      case 0:
      case 1:
      case 2:
      case 3:
      case 4:
        write(pick(kSections, input), pick(kKeys, input), pick(kValues, input));
        break;
      case 5:
      case 6:
        remove_key(pick(kSections, input), pick(kKeys, input));
        break;
      case 7:
        remove_section(pick(kSections, input));
        break;
      case 8:
      case 9:
      case 10:
        save(0);
        break;
      case 11:
        save(1);
        break;
      case 12:
        put(pick_text(input));
        break;
      case 13:
        reload();
        break;
      case 14:
        put(std::nullopt);
        break;
      default:
        dirty_ = false;  // the changes are given up, and stay in the model
        conf_->dirty = 0;
        break;
    }
    compare();
  }

  void save(int force) {
    const int error = error_of_save(force);
    std::optional<std::string> wanted = file_;
    if (dirty_ && error == 0) wanted = text_of_save(force);
    errno = 0;
    const int result = g_conf_save(conf_, force);
    REQUIRE_EQUAL(result, error == 0 ? 0 : -1);
    if (error != 0) REQUIRE_EQUAL(errno, error);
    const std::optional<std::string> written = fuzz::read_file(path_);
    REQUIRE_EQUAL(written.has_value(), wanted.has_value());
    REQUIRE_EQUAL(written.value_or(""), wanted.value_or(""));
    if (!dirty_ || error != 0) return;
    // Whatever the model says of the text: it reads as it should, and comments are there.
    REQUIRE(loaded(*written).readings() == model_.readings());
    if (file_ && file_->find('\0') == file_->npos)
      REQUIRE(others(*written) == others(*file_));
    file_ = written;
    known_ = written;
    dirty_ = false;
  }

 private:
  void put(std::optional<std::string> bytes) {
    unlink(path_.c_str());
    if (bytes) fuzz::write_file(path_, *bytes);
    file_ = std::move(bytes);
  }

  std::string text_of_save(int) const {
    const std::string bytes = file_.value_or("");
    return edited(bytes.find('\0') == bytes.npos ? bytes : "", model_);
  }

  int error_of_save(int force) const {
    if (!dirty_) return 0;
    const bool is_known = known_ ? file_ == known_ : file_.value_or("").empty();
    if (force == 0 && !is_known) return ESTALE;
    const bool has_nul = file_ && file_->find('\0') != file_->npos;
    if (force == 0 && has_nul) return EBADMSG;
    return loaded(text_of_save(force)).readings() == model_.readings() ? 0 : EINVAL;
  }

  void write(const std::string& section, const std::string& key, const std::string& value) {
    const Entry* const entry = model_.find(section, key);
    g_conf_write_string(conf_, section.c_str(), key.c_str(), value.c_str());
    if (value == (entry != nullptr ? entry->value : "")) return;
    model_.set(section, trimmed(key), trimmed(value));
    dirty_ = true;
    expected_.push_back(section + "." + key + "=" + value);
  }

  void remove_key(const std::string& section, const std::string& key) {
    g_conf_remove_key(conf_, section.c_str(), key.c_str());
    const Entry* const entry = model_.find(section, key);
    if (entry == nullptr) return;
    std::vector<Entry>& entries = model_.find(section)->entries;
    entries.erase(entries.begin() + (entry - entries.data()));
    dirty_ = true;
  }

  void remove_section(const std::string& name) {
    g_conf_remove_section(conf_, name.c_str());
    const Section* const section = model_.find(name);
    if (section == nullptr) return;
    model_.sections.erase(model_.sections.begin() + (section - model_.sections.data()));
    dirty_ = true;
  }

  void reload() {
    errno = 0;
    const int result = g_conf_reload(conf_);
    if (dirty_ || !file_) {
      REQUIRE_EQUAL(result, -1);
      REQUIRE_EQUAL(errno, dirty_ ? EBUSY : ENOENT);
      return;
    }
    REQUIRE_EQUAL(result, take_in(*file_));
    known_ = file_;
  }

  // Makes the model equal to the keys of the file; returns how many differed.
  int take_in(const std::string& bytes) {
    Model file = loaded(bytes);
    int count = 0;
    Texts removed;
    for (size_t i = 0; i < model_.sections.size();) {
      Section& section = model_.sections[i];
      std::erase_if(section.entries, [&](const Entry& entry) {
        if (file.find(section.name, entry.key) != nullptr) return false;
        note(removed, section.name, entry.key, "");
        ++count;
        return true;
      });
      if (file.find(section.name) != nullptr) {
        ++i;
      } else {
        model_.sections.erase(model_.sections.begin() + static_cast<ptrdiff_t>(i));
      }
    }
    for (const Section& section : file.sections) model_.need(section.name);
    // Line by line: the parts of a section need not be together.
    for (const Line& line : lines_of(bytes.substr(0, bytes.find('\0')))) {
      if (line.kind != Line::kEntry) continue;
      const std::string value = file.find(line.section, line.key)->value;
      const Entry* const entry = model_.find(line.section, line.key);
      if (entry != nullptr && entry->value == value) continue;
      model_.set(line.section, line.key, value);
      note(expected_, model_.find(line.section)->name,
           model_.find(line.section, line.key)->key, value);
      ++count;
    }
    expected_.insert(expected_.end(), removed.begin(), removed.end());
    return count;
  }

  // Callbacks are registered for few names only.
  static void note(Texts& texts, const std::string& section, const std::string& key,
                   const std::string& value) {
    // "x].k" may be the key "k" of "x]" only: no name here has a point.
    if (std::find(std::begin(kSections), std::end(kSections), section) !=
            std::end(kSections) &&
        std::find(std::begin(kKeys), std::end(kKeys), key) != std::end(kKeys)) {
      texts.push_back(section + "." + key + "=" + value);
    }
  }

  void compare() {
    REQUIRE_EQUAL(conf_->dirty, dirty_ ? 1 : 0);
    fuzz::compare_lists(conf_, model_.sections);
    REQUIRE(reported == expected_);
    reported.clear();
    expected_.clear();
  }

  std::string path_;
  GConf* conf_ = nullptr;
  std::optional<std::string> file_;   // what it holds
  std::optional<std::string> known_;  // what it held when the conf last loaded or saved it
  Model model_;
  bool dirty_ = false;
  Texts expected_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const fuzz::Directory directory;
  g_debug_set_level2(99);
  reported.clear();
  fuzz::Input input(data, size);
  const bool has_file = input.byte() % 8 != 0;
  const std::string text = pick_text(input);
  Session session(directory / "x.conf",
                  has_file ? std::optional<std::string>(text) : std::nullopt);
  while (!input.empty()) session.run(input);
  session.save(0);
  session.save(1);
  return 0;
}
