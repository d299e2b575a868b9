// The text is gone through twice: to find the line of each key and where new keys go, then
// to copy what stays and put in what changes. Unchanged lines are copied in one piece.
//
// SPDX-License-Identifier: MIT

#include "safe/conf_edit.h"

#include <cerrno>
#include <cstdlib>

namespace groundwork {
namespace {

using Id = ConfKeys::Id;
constexpr Id kNone = ConfKeys::kNone;
using Kind = Line::Kind;

template <typename T>
Owned<T> new_zeroed(size_t count) {
  return Owned<T>(static_cast<T*>(std::calloc(count + 1, sizeof(T))));
}

// Where in the text, by the beginnings of lines; null for nowhere.
class Places {
 public:
  // False when memory is exhausted.
  bool find(const ConfKeys& model, std::string_view text) {
    lines_ = new_zeroed<const char*>(model.key_count());
    anchors_ = new_zeroed<const char*>(model.section_count());
    if (lines_ == nullptr || anchors_ == nullptr) return false;
    for (FoundLines line(model, text); line.advance();) {
      if (line.kind() == Kind::kIgnored || line.section() == kNone) continue;
      anchors_.get()[line.section()] = line.text().data();
      if (line.key() != kNone) lines_.get()[line.key()] = line.text().data();
    }
    return true;
  }

  // The line that loading takes the value of a key from: the last.
  const char* line_of(Id key) const { return lines_.get()[key]; }

  // The line that new keys of a section follow.
  const char* anchor_of(Id section) const { return anchors_.get()[section]; }

 private:
  Owned<const char*> lines_;
  Owned<const char*> anchors_;
};

// How a line ends: a carriage return counts only right before the newline.
std::string_view end_of_line(std::string_view line) {
  return !line.empty() && line.back() == '\r' ? "\r\n" : "\n";
}

bool ends_in_empty_line(std::string_view text) {
  if (text.empty() || text.back() != '\n') return false;
  text.remove_suffix(1);
  if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
  return text.empty() || text.back() == '\n';
}

class Editor {
 public:
  Editor(std::string_view text, const ConfKeys& model, const Places& places, ConfText& out)
      : model_(model),
        places_(places),
        out_(out),
        kept_(text.data()),
        end_(text.data() + text.size()) {}

  bool edit(std::string_view text) {
    for (FoundLines line(model_, text); line.advance();) {
      if (!take(line)) return false;
    }
    if (!keep_to(end_) || !add_new_sections()) return false;
    end_likewise();
    return true;
  }

 private:
  bool add(std::string_view text) { return out_.add(text); }

  // Copies what has not been, up to there.
  bool keep_to(const char* at) {
    const char* const from = kept_;
    kept_ = at;
    return add({from, static_cast<size_t>(at - from)});
  }

  bool drop(const char* from, const char* to) {
    if (!keep_to(from)) return false;
    kept_ = to;
    return true;
  }

  bool take(const FoundLines& line) {
    const char* const begin = line.text().data();
    if (!line.is_last()) {
      newline_ = end_of_line(line.text());
    } else if (!line.text().empty()) {  // it has no newline
      if (!keep_to(begin)) return false;
      is_open_ = true;
      before_open_line_ = out_.view().size();
    }
    if (line.kind() == Kind::kIgnored) return true;
    if (!take_known(line)) return false;
    if (line.section() == kNone || places_.anchor_of(line.section()) != begin) return true;
    return add_new_keys(line.section(), line.next());
  }

  bool take_known(const FoundLines& line) {
    const char* const begin = line.text().data();
    const bool is_header = line.kind() == Kind::kHeader;
    if ((is_header ? line.section() : line.key()) == kNone) return drop(begin, line.next());
    if (is_header || places_.line_of(line.key()) != begin) return true;
    const std::string_view value = model_.key_at(line.key()).value;
    if (value == line.value()) return true;
    // The blanks after "=" stay. Where there is no value they reach to the line's end, of
    // which a carriage return is a part, not a blank.
    const char* const end = line.next() - (line.is_last() ? 0 : newline_.size());
    const char* const old_value = line.value().data();
    return drop(old_value < end ? old_value : end, end) && add(value);
  }

  // What is added next begins a line.
  bool begin_line() {
    const std::string_view text = out_.view();
    return text.empty() || text.back() == '\n' || add(newline_);
  }

  bool add_key(Id key) {
    return add(model_.key_at(key).name) && add("=") && add(model_.key_at(key).value) &&
           add(newline_);
  }

  bool add_new_keys(Id section, const char* after) {
    for (Id key = model_.section_at(section).first_key;
         key < model_.key_count() && model_.key_at(key).section == section; ++key) {
      if (places_.line_of(key) != nullptr) continue;
      if (!keep_to(after) || !begin_line() || !add_key(key)) return false;
    }
    return true;
  }

  bool add_new_sections() {
    for (Id section = 0; section < model_.section_count(); ++section) {
      if (places_.anchor_of(section) != nullptr || !has_keys(section)) continue;
      if (!begin_line()) return false;
      const std::string_view text = out_.view();
      if (!text.empty() && !ends_in_empty_line(text) && !add(newline_)) return false;
      if (!add("[") || !add(model_.section_at(section).name) || !add("]") ||
          !add(newline_) || !add_new_keys(section, end_)) {
        return false;
      }
    }
    return true;
  }

  bool has_keys(Id section) const {
    const Id key = model_.section_at(section).first_key;
    return key < model_.key_count() && model_.key_at(key).section == section;
  }

  // A file whose last line had no newline has none now, either, unless that line went and
  // nothing came.
  void end_likewise() {
    const std::string_view text = out_.view();
    if (is_open_ && text.size() > before_open_line_ && text.back() == '\n') {
      out_.remove_suffix(newline_.size());
    }
  }

  const ConfKeys& model_;
  const Places& places_;
  ConfText& out_;
  const char* kept_;  // what comes before has been copied or dropped
  const char* const end_;
  // Of the line before what is added now. Points to a literal.
  std::string_view newline_ = "\n";
  bool is_open_ = false;
  size_t before_open_line_ = 0;
};

}  // namespace

int edit_conf_text(std::string_view old_text, const ConfKeys& model, ConfText& out) {
  Places places;
  // Of a file that grows little, as most do, the text is moved once at most.
  if (!out.reserve(old_text.size() + 256) || !places.find(model, old_text)) return ENOMEM;
  if (Editor(old_text, model, places, out).edit(old_text) && !model.is_exhausted())
    return 0;
  return out.is_too_long() ? EFBIG : ENOMEM;
}

int check_conf_text(std::string_view text, const ConfKeys& model) {
  const Owned<bool> is_right = new_zeroed<bool>(model.key_count());
  if (is_right == nullptr) return ENOMEM;
  bool has_other = false;
  for (FoundLines line(model, text); line.advance();) {
    if (line.kind() != Kind::kEntry) continue;
    if (line.key() == kNone) {
      has_other = true;
    } else {
      // Of a key that comes again the last value holds.
      is_right.get()[line.key()] = line.value() == model.key_at(line.key()).value;
    }
  }
  if (model.is_exhausted()) return ENOMEM;
  if (has_other) return EINVAL;
  for (Id key = 0; key < model.key_count(); ++key) {
    if (!is_right.get()[key]) return EINVAL;
  }
  return 0;
}

}  // namespace groundwork
