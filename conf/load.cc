// The loader: reads the file in one call under a shared lock and parses the text in place.
//
// SPDX-License-Identifier: MIT

#include "conf/load.h"

#include <groundwork/file.h>
#include <groundwork/memory.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include <pthread.h>
#include <sys/stat.h>

#include "conf/line.h"
#include "conf/model.h"
#include "core/cancellation.h"
#include "core/check.h"
#include "core/owned.h"
#include "sys/file_handle.h"

namespace groundwork {
namespace {

// A file's text, terminated by a NUL; null if it could not be read.
struct Text {
  Owned<char> block;
  size_t size = 0;
};

// Allocates `size` bytes and one for a NUL. Null for a size that a single read cannot
// return.
Owned<char> new_buffer(int64_t size) {
  if (size < 0 || size >= INT32_MAX) return nullptr;
  return Owned<char>(static_cast<char*>(g_malloc(static_cast<unsigned>(size) + 1)));
}

// Returns whether an open file has this size. A program that replaces the file by a rename
// may give the path another file at any moment.
bool has_size(const GFile& file, int64_t size) {
  struct stat status;
  return fstat(file.descriptor, &status) == 0 && status.st_size == size;
}

// Reads a locked file. Kept: its size is taken from the path, and a file of another size is
// not read. The size of the descriptor is checked after reading, so that the text is
// complete.
void read_text(GFile* file, const char* filename, Text& text) {
  const int64_t size = g_file_size(filename);
  Owned<char> block = new_buffer(size);
  if (block == nullptr || g_file_read(file, block.get(), size) != size ||
      !has_size(*file, size)) {
    block.reset();  // the output handler may end the thread
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't read file '%s'.", filename);
    return;
  }
  block.get()[size] = '\0';
  text = {std::move(block), static_cast<size_t>(size)};
}

void read_locked(GFile* file, const char* filename, Text& text) {
  if (g_file_lock_read(file) < 0) {
    // Kept: the closing quote is missing; programs look for this message in logs.
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't read lock for '%s.", filename);
    return;
  }
  read_text(file, filename, text);
  g_file_unlock(file);
}

LEFT_BY_CANCELLATION void read_file(const char* filename, Text& text) {
  const CancellationHeld held;
  GFile file;
  if (!open_file(file, filename, 0)) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't open file '%s'.", filename);
    return;
  }
  // An output handler may end the thread.
  with_cleanup(close_file, &file, [&] { read_locked(&file, filename, text); });
  close_file(&file);
}

// False when memory is exhausted.
bool load_line(GConf* conf, GConfSection*& current, const Line& line) {
  if (line.kind == Line::Kind::kHeader) {
    current = load_section(conf, line.name);
    return current != nullptr;
  }
  if (line.kind == Line::Kind::kIgnored || current == nullptr) return true;
  return load_entry(current, line.name, line.value);
}

bool load_text(GConf* conf, std::string_view text) {
  GConfSection* current = nullptr;
  while (!text.empty()) {
    if (!load_line(conf, current, take_line(text))) return false;
  }
  return true;
}

}  // namespace

GConf* parse_conf(const char* filename, const char* text, size_t size) {
  GConf* const conf = new_conf(filename);
  if (conf == nullptr) return nullptr;
  // A NUL in the file ends its text.
  if (!load_text(conf, text)) {
    free_conf(conf);
    return nullptr;
  }
  set_file_text(conf, text, size);
  return conf;
}

GConf* load_conf(const char* filename) {
  CHECK_ARG(filename != NULL, nullptr);
  Text text;
  read_file(filename, text);
  if (text.block == nullptr) return nullptr;
  GConf* const conf = parse_conf(filename, text.block.get(), text.size);
  if (conf == nullptr) {
    text.block.reset();
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't read file '%s'.", filename);
  }
  return conf;
}

}  // namespace groundwork
