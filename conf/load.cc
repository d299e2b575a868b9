// The loader: reads the file in one call under a shared lock and takes the text apart where
// it lies.
//
// SPDX-License-Identifier: MIT

#include <groundwork/file.h>
#include <groundwork/memory.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "conf/file_text.h"
#include "conf/model.h"
#include "conf/name.h"
#include "core/cancellation.h"
#include "core/check.h"
#include "core/owned.h"

namespace groundwork {
namespace {

// Room for `size` bytes and a NUL. Null for a size that no single read could give.
Owned<char> new_buffer(std::int64_t size) {
  if (size < 0 || size >= INT32_MAX) return nullptr;
  return Owned<char>(static_cast<char*>(g_malloc(static_cast<unsigned>(size) + 1)));
}

// The text of a locked file; null unless it has exactly the size that its path shows.
Owned<char> read_text(GFile* file, const char* filename) {
  const std::int64_t size = g_file_size(filename);
  Owned<char> text = new_buffer(size);
  if (text == nullptr || g_file_read(file, text.get(), size) != size) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't read file '%s'.", filename);
    return nullptr;
  }
  text.get()[size] = '\0';
  return text;
}

Owned<char> read_locked(const char* filename) {
  const CancellationHeld held;
  GFile* const file = g_file_open(filename, 0);
  if (file == nullptr) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't open file '%s'.", filename);
    return nullptr;
  }
  Owned<char> text;
  if (g_file_lock_read(file) < 0) {
    // Kept: the closing quote is missing in the message that is matched in log files.
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't read lock for '%s.", filename);
  } else {
    text = read_text(file, filename);
    g_file_unlock(file);
  }
  g_file_close(file);
  return text;
}

// Where the first `mark` of a line is; its end without one.
std::size_t position_of(std::string_view line, char mark) {
  const void* const found = std::memchr(line.data(), mark, line.size());
  return found != nullptr
             ? static_cast<std::size_t>(static_cast<const char*>(found) - line.data())
             : line.size();
}

std::string_view between(std::string_view line, std::size_t from, std::size_t to) {
  return {line.data() + from, to - from};
}

// Only the first character of a line is looked at: an indented "[x]" or "#" is no header
// and no comment. False when memory is exhausted.
bool load_line(GConf* conf, GConfSection*& current, std::string_view line) {
  if (line.empty() || line.front() == '#') return true;
  if (line.front() == '[') {
    const std::size_t end = position_of(line, ']');
    // A header that is not closed leaves the section as it was.
    if (end == line.size()) return true;
    current = load_section(conf, between(line, 1, end));
    return current != nullptr;
  }
  if (current == nullptr) return true;
  const std::size_t equals = position_of(line, '=');
  if (equals == line.size()) return true;
  return load_entry(current, trimmed(between(line, 0, equals)),
                    trimmed(between(line, equals + 1, line.size())));
}

bool load_text(GConf* conf, std::string_view text) {
  GConfSection* current = nullptr;
  for (;;) {
    const std::size_t end = position_of(text, '\n');
    if (!load_line(conf, current, between(text, 0, end))) return false;
    if (end == text.size()) return true;
    text.remove_prefix(end + 1);
  }
}

}  // namespace

GConf* load_conf(const char* filename) {
  CHECK_ARG(filename != NULL, nullptr);
  const Owned<char> text = read_locked(filename);
  if (text == nullptr) return nullptr;
  GConf* const conf = new_conf(filename);
  // A NUL in the file ends its text.
  if (conf != nullptr && load_text(conf, text.get())) return conf;
  g_log(G_LOG_WARNING, kSource, __LINE__, "can't read file '%s'.", filename);
  if (conf != nullptr) free_conf(conf);
  return nullptr;
}

}  // namespace groundwork
