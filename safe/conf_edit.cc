// Scans the text once to find the line of each key and what has to change, then copies what
// stays, in pieces as long as possible, and inserts the changes.
//
// SPDX-License-Identifier: MIT

#include "safe/conf_edit.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "conf/line.h"
#include "safe/conf_table.h"

namespace groundwork {
namespace {

using Id = ConfTable::Id;
using Item = ConfTable::Item;
using Kind = Line::Kind;
constexpr Id kNone = ConfTable::kNone;

// The line end of the last line that has one. A carriage return belongs to it only directly
// before the newline.
std::string_view last_line_end(std::string_view text) {
  while (!text.empty() && text.back() != '\n') text.remove_suffix(1);
  return text.size() > 1 && text[text.size() - 2] == '\r' ? "\r\n" : "\n";
}

// A text without its last line end, if it has one.
std::string_view without_line_end(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(last_line_end(text).size());
  return text;
}

bool ends_in_empty_line(std::string_view text) {
  const std::string_view before = without_line_end(text);
  return before.size() != text.size() && (before.empty() || before.ends_with('\n'));
}

bool is_one_line(std::string_view text) {
  return position_of(text, '\n') == text.size();
}

class Editor {
 public:
  Editor(std::string_view text, ByteArray& out)
      : text_(text), out_(out), kept_(text.data()), end_(text.data() + text.size()) {}

  // Returns 0 or an error number.
  int edit(const GConf* conf);

 private:
  // A piece of the text to remove, and what to put in its place.
  struct Edit {
    const char* from;
    const char* to;
    Id id;  // a key: its value; a section: its new keys; kNone: nothing
  };

  bool find_edits();
  bool find_edit(const TableLines& line);
  bool make(const Edit& edit);
  bool add_value(std::string_view value);
  bool add_new_keys(Id section, const char* after);
  bool add_new_sections();
  bool begin_line(const char* after);
  bool add_line(Kind kind, const Item& item);
  void end_likewise();

  bool note(const char* from, const char* to, Id id) {
    return edits_.add({from, to, id}) || fail(ENOMEM);
  }

  // Copies up to `at` what has not been copied yet.
  bool keep_to(const char* at) {
    const char* const from = kept_;
    kept_ = at;
    return add({from, static_cast<size_t>(at - from)});
  }

  bool add(std::string_view text) {
    if (text.size() > INT32_MAX - out_.size()) return fail(EFBIG);
    return out_.add(text) || fail(ENOMEM);
  }

  bool fail(int error) {
    error_ = error;
    return false;
  }

  ConfTable table_;
  Array<Edit> edits_;  // in the order of the text
  const std::string_view text_;
  ByteArray& out_;
  const char* kept_;  // everything before has been copied or removed
  const char* const end_;
  std::string_view newline_;      // for added lines; a literal
  size_t without_last_line_ = 0;  // the size of the result when the last line was removed
  int error_ = 0;
};

int Editor::edit(const GConf* conf) {
  table_.take(conf);
  // Most files grow little, and so are moved at most once.
  if (!out_.reserve(text_.size() + 256)) return ENOMEM;
  if (!find_edits()) return error_;
  for (const Edit& edit : edits_) {
    if (!make(edit)) return error_;
  }
  if (!keep_to(end_) || !add_new_sections()) return error_;
  end_likewise();
  const bool has_duplicates = table_.has_duplicates();
  if (table_.is_exhausted()) return ENOMEM;
  return has_duplicates ? EINVAL : 0;
}

bool Editor::find_edits() {
  Id part = kNone;  // the section of the current lines, up to `part_end`
  const char* part_end = nullptr;
  TableLines line(table_, text_, false);
  while (line.advance()) {
    if (line.is_header()) {
      if (part != kNone && !note(part_end, part_end, part)) return false;
      part = line.section();
    }
    if (!find_edit(line)) return false;
    if (part == kNone) continue;
    table_[part].line = line.begin();
    part_end = line.next();
  }
  if (table_.is_exhausted()) return fail(ENOMEM);
  return part == kNone || note(part_end, part_end, part);
}

bool Editor::find_edit(const TableLines& line) {
  const char* const begin = line.begin();
  if (line.id() == kNone) return note(begin, line.next(), kNone);
  Item& item = table_[line.id()];
  item.line = begin;
  if (line.is_header() || item.has_value(line.value())) return true;
  // Spaces after "=" are kept. Without a value they extend to the end of the line, which
  // includes a carriage return.
  const auto size = static_cast<size_t>(line.next() - begin);
  const char* const end = begin + without_line_end({begin, size}).size();
  return note(std::min(line.value().data(), end), end, line.id());
}

bool Editor::make(const Edit& edit) {
  if (edit.id != kNone) {
    const Item& item = table_[edit.id];
    // Of a repeated key the last line counts, and new keys of a section go after its last
    // part.
    if (item.line >= edit.from) return true;
    if (item.is_section()) return add_new_keys(edit.id, edit.from);
  }
  if (!keep_to(edit.from)) return false;
  kept_ = edit.to;
  if (edit.id != kNone) return add_value(table_[edit.id].value());
  if (edit.to == end_) without_last_line_ = out_.size();
  return true;
}

bool Editor::add_value(std::string_view value) {
  return is_one_line(value) ? add(value) : fail(EINVAL);
}

bool Editor::add_new_keys(Id section, const char* after) {
  for (Id id = section + 1; id < table_[section].end; ++id) {
    if (table_[id].line != nullptr) continue;
    if (!begin_line(after) || !add_line(Kind::kEntry, table_[id])) return false;
  }
  return true;
}

bool Editor::add_new_sections() {
  for (Id id = 0; id < table_.size(); id = table_[id].end) {
    const Item& item = table_[id];
    if (item.line != nullptr || item.end == id + 1) continue;
    if (!begin_line(end_)) return false;
    const std::string_view text = out_.view();
    if (!text.empty() && !ends_in_empty_line(text) && !add(newline_)) return false;
    if (!add_line(Kind::kHeader, item) || !add_new_keys(id, end_)) return false;
  }
  return true;
}

// Begins a line after the text before `after`, with the same kind of line end.
bool Editor::begin_line(const char* after) {
  newline_ = last_line_end({text_.data(), static_cast<size_t>(after - text_.data())});
  if (!keep_to(after)) return false;
  return out_.size() == 0 || out_.view().ends_with('\n') || add(newline_);
}

// Adds a line, and checks that loading would read it as intended.
bool Editor::add_line(Kind kind, const Item& item) {
  const bool is_header = kind == Kind::kHeader;
  const std::string_view value = is_header ? "" : item.value();
  const size_t begin = out_.size();
  if (!add(is_header ? "[" : "") || !add(item.name) || !add(is_header ? "]" : "=") ||
      !add(value)) {
    return false;
  }
  std::string_view line(out_.data() + begin, out_.size() - begin);
  const Line read = take_line(line);
  const bool is_right =
      line.empty() && read.kind == kind && read.name == item.name && read.value == value;
  return is_right ? add(newline_) : fail(EINVAL);
}

// If the last line had no newline, it gets none now, unless that line was removed and
// nothing was added.
void Editor::end_likewise() {
  const std::string_view text = out_.view();
  if (text_.empty() || text_.ends_with('\n') || text.size() == without_last_line_) return;
  out_.cut(without_line_end(text).size());
}

}  // namespace

int edit_conf_text(std::string_view old_text, const GConf* conf, ByteArray& out) {
  return Editor(old_text, out).edit(conf);
}

}  // namespace groundwork
