// The writer: one buffer and one write for the whole file. What cannot be written that way
// is written line by line, and a line that fails is given up, not those after it.
//
// SPDX-License-Identifier: MIT

#include <groundwork/file.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "conf/file_text.h"
#include "conf/model.h"
#include "core/cancellation.h"
#include "core/check.h"
#include "core/copy_text.h"

namespace groundwork {
namespace {

// Calls add(first, separator, second, end) for each line of the file; stops when that
// answers false.
template <typename Add>
bool for_each_line(const GConf* conf, Add add) {
  for (const GList* node = conf->sections; node != nullptr; node = node->next) {
    const auto* const section = static_cast<const GConfSection*>(node->data);
    // A section without entries is not written.
    if (section->entries == nullptr) continue;
    if (!add("[", section->name, "", "]\n")) return false;
    for (const GList* line = section->entries; line != nullptr; line = line->next) {
      const auto* const entry = static_cast<const GConfEntry*>(line->data);
      if (!add(entry->key, "=", entry->value, "\n")) return false;
    }
    if (!add("", "", "", "\n")) return false;
  }
  return true;
}

// Text that grows as it is added to.
class TextBuffer {
 public:
  TextBuffer() = default;
  ~TextBuffer() { std::free(text_); }
  TextBuffer(const TextBuffer&) = delete;
  TextBuffer& operator=(const TextBuffer&) = delete;

  // False when memory is exhausted.
  bool add(std::string_view text) {
    if (text.size() > capacity_ - size_ && !grow(text.size())) return false;
    copy_text(text_ + size_, text.data(), text.size());
    size_ += text.size();
    return true;
  }

  const char* text() const { return text_; }
  std::size_t size() const { return size_; }

 private:
  bool grow(std::size_t more) {
    std::size_t needed = 0;
    std::size_t capacity = capacity_ != 0 ? capacity_ : 2048;
    if (__builtin_add_overflow(size_, more, &needed)) return false;
    while (capacity < needed) {
      if (__builtin_mul_overflow(capacity, std::size_t{2}, &capacity)) return false;
    }
    auto* const grown = static_cast<char*>(std::realloc(text_, capacity));
    if (grown == nullptr) return false;
    text_ = grown;
    capacity_ = capacity;
    return true;
  }

  char* text_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

bool format(const GConf* conf, TextBuffer& buffer) {
  return for_each_line(conf, [&buffer](std::string_view first, std::string_view separator,
                                       std::string_view second, std::string_view end) {
    return buffer.add(first) && buffer.add(separator) && buffer.add(second) &&
           buffer.add(end);
  });
}

// Goes on after a write that took `written` bytes, or failed: the line that it broke off in
// is given up, each later one is tried.
void write_rest(GFile* file, const GConf* conf, const TextBuffer& buffer,
                std::int64_t written) {
  const std::size_t tried = written < 0 ? 1 : static_cast<std::size_t>(written);
  std::size_t begin = 0;
  for_each_line(conf, [&](std::string_view first, std::string_view separator,
                          std::string_view second, std::string_view end) {
    const std::size_t size = first.size() + separator.size() + second.size() + end.size();
    if (size > buffer.size() - begin) return false;
    if (begin >= tried) {
      g_file_write(file, buffer.text() + begin, static_cast<std::int64_t>(size));
    }
    begin += size;
    return true;
  });
}

// Needs no memory.
void write_in_pieces(GFile* file, const GConf* conf) {
  for_each_line(conf, [file](auto... pieces) {
    for (const std::string_view piece : {std::string_view(pieces)...}) {
      if (piece.empty()) continue;
      g_file_write(file, piece.data(), static_cast<std::int64_t>(piece.size()));
    }
    return true;
  });
}

void write_text(GFile* file, const GConf* conf) {
  TextBuffer buffer;
  if (!format(conf, buffer)) {
    write_in_pieces(file, conf);
    return;
  }
  if (buffer.size() == 0) return;
  const auto size = static_cast<std::int64_t>(buffer.size());
  const std::int64_t written = g_file_write(file, buffer.text(), size);
  if (written != size) write_rest(file, conf, buffer, written);
}

}  // namespace

void write_conf(const GConf* conf) {
  const CancellationHeld held;
  GFile* const file = g_file_open(conf->filename, 2);
  if (file == nullptr) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't create config file '%s'.",
          conf->filename);
    return;
  }
  // Kept: by now the open has emptied the file, whether the lock is granted or not.
  if (g_file_lock_write(file) < 0) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't lock write for '%s'.", conf->filename);
    g_file_close(file);
    return;
  }
  write_text(file, conf);
  g_file_truncate(file);
  g_file_unlock(file);
  g_file_close(file);
}

}  // namespace groundwork
