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
  std::size_t path_length;
  std::size_t next;  // offsets from the block's start: the name to give next,
  std::size_t end;   // and where the names end; each has its terminator
};

namespace {

constexpr char kSource[] = "g_dir";
constexpr std::size_t kFirstSize = 512;

// Resizes a block that holds `used` bytes to have room for `more`. False when memory is
// exhausted; the block is untouched then.
template <typename Block>
bool make_room(Block*& block, std::size_t& size, std::size_t used, std::size_t more) {
  if (used + more <= size) return true;
  std::size_t wanted = size;
  do {
    wanted *= 2;
  } while (wanted < used + more);
  auto* const grown = static_cast<Block*>(std::realloc(block, wanted));
  if (grown == nullptr) [[unlikely]]
    return false;
  block = grown;
  size = wanted;
  return true;
}

void report_shortage(std::size_t size) {
  g_log(G_LOG_WARNING, kSource, __LINE__, "failed to allocate %u bytes.",
        static_cast<unsigned>(size));
}

}  // namespace

bool groundwork::is_dot_name(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Nothing between opendir() and closedir() is a cancellation point that the C library
// uses; the reports, which write, wait until after it.
TreeWalk::Level* TreeWalk::read_names(const char* path, Entered& outcome) {
  outcome = Entered::kNotOpened;
  DIR* const directory = open_directory(path);
  if (directory == nullptr) return nullptr;

  outcome = Entered::kNoMemory;
  std::size_t size = kFirstSize;
  std::size_t missing = 0;  // what could not be allocated
  auto* level = static_cast<Level*>(std::malloc(size));
  if (level == nullptr) [[unlikely]] {
    missing = size;
  } else {
    outcome = Entered::kYes;
    *level = {nullptr, 0, sizeof(Level), sizeof(Level)};
    while (const struct dirent* const entry = readdir(directory)) {
      if (is_dot_name(entry->d_name)) continue;
      const std::size_t length = std::strlen(entry->d_name) + 1;
      if (!make_room(level, size, level->end, length)) [[unlikely]] {
        missing = 2 * size;
        break;
      }
      std::memcpy(reinterpret_cast<char*>(level) + level->end, entry->d_name, length);
      level->end += length;
    }
  }
  closedir(directory);
  if (missing != 0) [[unlikely]]
    report_shortage(missing);
  if (level == nullptr) return nullptr;
  auto* const fitted = static_cast<Level*>(std::realloc(level, level->end));
  return fitted != nullptr ? fitted : level;
}

TreeWalk::Entered TreeWalk::enter(const char* path) {
  Entered outcome;
  Level* const level = read_names(path, outcome);
  if (level == nullptr) return outcome;
  level->parent = level_;
  level->path_length = std::strlen(path);  // it was opened, so it fits
  if (path != path_) std::memcpy(path_, path, level->path_length + 1);
  level_ = level;
  return outcome;
}

const char* TreeWalk::next_name() {
  if (level_->next == level_->end) return nullptr;
  const char* const name = reinterpret_cast<const char*>(level_) + level_->next;
  level_->next += std::strlen(name) + 1;
  return name;
}

bool TreeWalk::set_entry(const char* name, bool with_slash) {
  std::size_t length = level_->path_length;
  if (with_slash && length < PATH_MAX - 1) path_[length++] = '/';
  const std::size_t room = PATH_MAX - 1 - length;
  const std::size_t count = strnlen(name, room + 1);
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

std::size_t TreeWalk::directory_length() const {
  return level_->path_length;
}

bool TreeWalk::ends_with_slash() const {
  return level_->path_length != 0 && path_[level_->path_length - 1] == '/';
}

void TreeWalk::abandon(void* walk) {
  auto* const abandoned = static_cast<TreeWalk*>(walk);
  while (abandoned->level_ != nullptr) abandoned->leave();
}
