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
Owned<T> new_zeroed(std::size_t count) {
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
    for_each_found_line(model, text, [this](std::string_view line, const FoundLine& found) {
      if (found.parsed.kind == Kind::kIgnored || found.section == kNone) return true;
      anchors_.get()[found.section] = line.data();
      if (found.key != kNone) lines_.get()[found.key] = line.data();
      return true;
    });
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
    return for_each_found_line(model_, text,
                               [this](std::string_view line, const FoundLine& found) {
                                 return take_line(line, found);
                               }) &&
           keep_to(end_) && add_new_sections() && end_likewise();
  }

 private:
  bool add(std::string_view text) { return out_.add(text); }

  // Copies what has not been, up to there.
  bool keep_to(const char* at) {
    const char* const from = kept_;
    kept_ = at;
    return add({from, static_cast<std::size_t>(at - from)});
  }

  bool drop(const char* from, const char* to) {
    if (!keep_to(from)) return false;
    kept_ = to;
    return true;
  }

  bool take_line(std::string_view line, const FoundLine& found) {
    const char* const line_end = line.data() + line.size();
    const bool is_last = line_end == end_;
    if (!is_last) {
      newline_ = end_of_line(line);
    } else if (!line.empty() && !begin_open_line(line)) {
      return false;
    }
    if (found.parsed.kind == Kind::kIgnored) return true;
    const char* const next = is_last ? line_end : line_end + 1;
    if (!take_known_line(line, next, found)) return false;
    if (found.section == kNone || places_.anchor_of(found.section) != line.data())
      return true;
    return add_new_keys(found.section, next);
  }

  bool take_known_line(std::string_view line, const char* next, const FoundLine& found) {
    const bool is_header = found.parsed.kind == Kind::kHeader;
    if ((is_header ? found.section : found.key) == kNone) return drop(line.data(), next);
    if (is_header || places_.line_of(found.key) != line.data()) return true;
    const std::string_view value = model_.key_at(found.key).value;
    if (value == found.parsed.value) return true;
    // The blanks after "=" stay. Where there is no value they reach to the line's end, of
    // which a carriage return is a part, not a blank.
    const char* const line_end = line.data() + line.size();
    const char* const end = next != line_end ? line_end + 1 - newline_.size() : line_end;
    const char* const begin = found.parsed.value.data();
    return drop(begin < end ? begin : end, end) && add(value);
  }

  // The last line has no newline.
  bool begin_open_line(std::string_view line) {
    if (!keep_to(line.data())) return false;
    is_open_ = true;
    before_open_line_ = out_.view().size();
    return true;
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
  bool end_likewise() {
    const std::string_view text = out_.view();
    if (is_open_ && text.size() > before_open_line_ && text.back() == '\n' &&
        text.size() >= newline_.size()) {
      out_.remove_suffix(newline_.size());
    }
    return true;
  }

  const ConfKeys& model_;
  const Places& places_;
  ConfText& out_;
  const char* kept_;  // what comes before has been copied or dropped
  const char* const end_;
  // Of the line before what is added now. Points to a literal.
  std::string_view newline_ = "\n";
  bool is_open_ = false;
  std::size_t before_open_line_ = 0;
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
  const bool has_no_other =
      for_each_found_line(model, text, [&](std::string_view, const FoundLine& found) {
        if (found.parsed.kind != Kind::kEntry) return true;
        if (found.key == kNone) return false;
        // Of a key that comes again the last value holds.
        is_right.get()[found.key] = found.parsed.value == model.key_at(found.key).value;
        return true;
      });
  if (model.is_exhausted()) return ENOMEM;
  if (!has_no_other) return EINVAL;
  for (Id key = 0; key < model.key_count(); ++key) {
    if (!is_right.get()[key]) return EINVAL;
  }
  return 0;
}

}  // namespace groundwork
