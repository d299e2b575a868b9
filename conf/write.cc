// The writer: one buffer and one write for the whole file. If that fails, it writes line by
// line; a line that fails is skipped, and later ones are still written.
//
// SPDX-License-Identifier: MIT

#include "conf/write.h"

#include <groundwork/file.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <pthread.h>

#include "conf/model.h"
#include "core/built_for.h"
#include "core/cancellation.h"
#include "core/check.h"
#include "sys/file_handle.h"

namespace groundwork {
namespace {

// For some new keys.
constexpr size_t kUsualGrowth = 1024;

// Calls add(first, separator, second, end) for each line of the file, until it returns
// false.
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

// Copies a text that is usually longer than a word but too short to be worth a call.
// Returns the end of the copy.
inline char* put_text(char* at, std::string_view text) {
  constexpr size_t kWord = sizeof(uint32_t);
  const size_t size = text.size();
  if (!kForSpeed || size >= 8 * kWord) {
    std::memcpy(at, text.data(), size);
  } else if (size >= kWord) {
    // The last word may overlap the one before.
    const size_t last = size - kWord;
    for (size_t done = 0; done < last; done += kWord) {
      std::memcpy(at + done, text.data() + done, kWord);
    }
    std::memcpy(at + last, text.data() + last, kWord);
  } else {
    for (size_t done = 0; done < size; ++done) at[done] = text[done];
  }
  return at + size;
}

// Continues after a write that wrote `written` bytes, or failed: skips the line in which it
// stopped, and tries each later one.
void write_rest(GFile* file, const GConf* conf, const ByteArray& buffer, int64_t written) {
  const size_t tried = written < 0 ? 1 : static_cast<size_t>(written);
  size_t begin = 0;
  for_each_line(conf, [&](const char* first, const char* separator, const char* second,
                          const char* end) {
    size_t size = 0;
    for (const char* const piece : {first, separator, second, end}) {
      size += std::strlen(piece);
    }
    if (size > buffer.size() - begin) return false;
    if (begin >= tried) {
      g_file_write(file, buffer.data() + begin, static_cast<int64_t>(size));
    }
    begin += size;
    return true;
  });
}

// Writes everything piece by piece, which needs no memory.
void write_in_pieces(GFile* file, const GConf* conf) {
  for_each_line(conf, [file](const char* first, const char* separator, const char* second,
                             const char* end) {
    for (const char* const piece : {first, separator, second, end}) {
      if (*piece != '\0') {
        g_file_write(file, piece, static_cast<int64_t>(std::strlen(piece)));
      }
    }
    return true;
  });
}

// Writes the formatted text. Returns true if all of it was written.
bool write_formatted(GFile* file, const GConf* conf, const ByteArray& text) {
  if (text.size() == 0) return true;
  const auto size = static_cast<int64_t>(text.size());
  const int64_t written = g_file_write(file, text.data(), size);
  if (written == size) return true;
  write_rest(file, conf, text, written);
  return false;
}

// What is held while a conf is written.
struct Output {
  GFile file = kClosed;
  ByteArray text;
};

void drop(void* output) {
  auto* const held = static_cast<Output*>(output);
  close_file(&held->file);
  std::free(held->text.release());
}

// Opens, locks and writes the file, and notes its content, as far as it is known, in the
// conf. Without `has_text` there was no memory for the text.
void write_file(GConf* conf, Output& output, bool has_text) {
  GFile* const file = &output.file;
  if (!open_file(*file, conf->filename, 2)) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't create config file '%s'.",
          conf->filename);
    return;
  }
  // Kept: opening has already emptied the file, whether the lock is granted or not.
  set_file_text(conf, nullptr, 0);
  if (g_file_lock_write(file) < 0) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't lock write for '%s'.", conf->filename);
    return;
  }
  set_file_content(conf, {});
  const ByteArray& text = output.text;
  bool is_whole = false;
  if (has_text) {
    is_whole = write_formatted(file, conf, text);
  } else {
    write_in_pieces(file, conf);
  }
  g_file_truncate(file);
  g_file_unlock(file);
  if (is_whole) set_file_text(conf, text.data(), text.size());
}

}  // namespace

bool format_conf(const GConf* conf, ByteArray& buffer) {
  const auto add = [&buffer](std::string_view first, std::string_view separator,
                             std::string_view second, std::string_view end)
      __attribute__((always_inline)) {
    char* at = buffer.extend(first.size() + separator.size() + second.size() + end.size());
    if (at == nullptr) return false;
    at = put_text(at, first);
    at = put_text(at, separator);
    at = put_text(at, second);
    put_text(at, end);
    return true;
  };
  if constexpr (kForSpeed) return for_each_line(conf, add);
  // For size, not three times the same.
  return for_each_line(
      conf, [&add](const char* first, const char* separator, const char* second,
                   const char* end)
                __attribute__((noinline)) { return add(first, separator, second, end); });
}

LEFT_BY_CANCELLATION void write_conf(GConf* conf) {
  const CancellationHeld held;
  // Formats before the file is opened, which empties it: a program that is killed in
  // between leaves it empty.
  Output output;
  // Most changes hardly affect the size.
  const size_t old_size = file_content(conf).text.size;
  output.text.reserve(old_size + old_size / 8 + kUsualGrowth);
  const bool has_text = format_conf(conf, output.text);
  // An output handler may end the thread.
  with_cleanup(drop, &output, [&] { write_file(conf, output, has_text); });
  drop(&output);
}

}  // namespace groundwork
