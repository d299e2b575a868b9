// The levels of a walk through a tree: one heap block each, header and packed names.
//
// SPDX-License-Identifier: MIT

#include "sys/tree_walk.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <dirent.h>

#include "core/check.h"
#include "sys/descriptors.h"

using namespace groundwork;

static_assert(PATH_MAX == 4096);

struct TreeWalk::Level {
  Level* parent;
  size_t path_length;
  size_t next;  // offset of the next name from the block's start
  size_t end;   // offset of the end of the names, each with its terminator
};

namespace {

constexpr char kSource[] = "g_dir";
constexpr size_t kFirstSize = 512;

void report_shortage(size_t size) {
  g_log(G_LOG_WARNING, kSource, __LINE__, "failed to allocate %u bytes.",
        static_cast<unsigned>(size));
}

}  // namespace

bool groundwork::is_dot_name(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// The block of a level while its directory is read.
class TreeWalk::LevelReader {
 public:
  // Reads the names. False when memory is exhausted; the names so far are kept.
  bool read(DIR* directory) {
    if (!reserve(sizeof(Level))) return false;
    *level_ = {nullptr, 0, sizeof(Level), sizeof(Level)};
    while (const struct dirent* const entry = readdir(directory)) {
      if (!is_dot_name(entry->d_name) && !append(entry->d_name)) return false;
    }
    return true;
  }

  // Hands over the level, in a block of its size; null when there was no memory even for
  // that.
  Level* release() {
    if (level_ == nullptr) return nullptr;
    auto* const fitted = static_cast<Level*>(std::realloc(level_, level_->end));
    return fitted != nullptr ? fitted : level_;
  }

  // The last size requested.
  size_t wanted() const { return wanted_; }

 private:
  bool append(const char* name) {
    const size_t length = std::strlen(name) + 1;
    if (!reserve(level_->end + length)) return false;
    std::memcpy(reinterpret_cast<char*>(level_) + level_->end, name, length);
    level_->end += length;
    return true;
  }

  bool reserve(size_t needed) {
    if (needed <= size_) return true;
    while (wanted_ < needed) wanted_ = wanted_ == 0 ? kFirstSize : 2 * wanted_;
    auto* const grown = static_cast<Level*>(std::realloc(level_, wanted_));
    if (grown == nullptr) [[unlikely]]
      return false;
    level_ = grown;
    size_ = wanted_;
    return true;
  }

  Level* level_ = nullptr;
  size_t size_ = 0;
  size_t wanted_ = 0;
};

// Nothing between opendir() and closedir() is a cancellation point in the C libraries
// supported. The report, which writes, comes only after abandon() can find the level.
TreeWalk::EnterResult TreeWalk::enter(const char* path) {
  DIR* const directory = open_directory(path);
  if (directory == nullptr) return EnterResult::kNotOpened;
  LevelReader reader;
  const bool is_whole = reader.read(directory);
  closedir(directory);
  Level* const level = reader.release();
  if (level != nullptr) {
    level->parent = level_;
    level->path_length = std::strlen(path);  // it was opened, so it fits
    if (path != path_) std::memcpy(path_, path, level->path_length + 1);
    level_ = level;
  }
  if (!is_whole) [[unlikely]]
    report_shortage(reader.wanted());
  return level != nullptr ? EnterResult::kEntered : EnterResult::kNoMemory;
}

const char* TreeWalk::next_name() {
  if (level_->next == level_->end) return nullptr;
  const char* const name = reinterpret_cast<const char*>(level_) + level_->next;
  level_->next += std::strlen(name) + 1;
  return name;
}

bool TreeWalk::set_entry(const char* name, bool with_slash) {
  size_t length = level_->path_length;
  if (with_slash && length < PATH_MAX - 1) path_[length++] = '/';
  const size_t room = PATH_MAX - 1 - length;
  const size_t count = strnlen(name, room + 1);
  const bool fits = count <= room;
  std::memcpy(path_ + length, name, fits ? count : room);
  path_[length + (fits ? count : room)] = '\0';
  return fits;
}

void TreeWalk::set_directory() {
  path_[level_->path_length] = '\0';
}

bool TreeWalk::leave() {
  Level* const parent = level_->parent;
  std::free(level_);
  level_ = parent;
  return level_ != nullptr;
}

bool TreeWalk::at_top() const {
  return level_->parent == nullptr;
}

size_t TreeWalk::directory_length() const {
  return level_->path_length;
}

bool TreeWalk::ends_with_slash() const {
  return level_->path_length != 0 && path_[level_->path_length - 1] == '/';
}

void TreeWalk::abandon(void* walk) {
  auto* const abandoned = static_cast<TreeWalk*>(walk);
  while (abandoned->level_ != nullptr) abandoned->leave();
}
