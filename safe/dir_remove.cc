// Removal of a tree that never leaves it.
//
// Every name is looked up in an open directory, without following links, and its target is
// examined after it was opened: whatever others do to the tree meanwhile, the walk never
// leaves it. Names are not stored. On the way back up, a directory whose stream was closed
// is reopened as ".." and read again from its start; its removed entries are gone, and
// subdirectories that could not be emptied are remembered. If ".." leads elsewhere or
// cannot be opened, the walk begins again at the top.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "core/byte_array.h"
#include "core/cancellation.h"
#include "core/check.h"
#include "core/owned.h"
#include "safe/dir_identity.h"
#include "safe/failure.h"
#include "safe/file_descriptor.h"

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_dir";
constexpr size_t kStreams = 8;    // the number of deepest directories that stay open
constexpr int kMostPasses = 100;  // over a directory that others keep filling
constexpr int kMostWalks = 100;   // of a tree in which the way back is lost again and again
constexpr int kDirectory = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;

bool is_dot_name(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// A directory on the way down. There may be any number of them, so this is small.
struct Level {
  uint64_t inode;
  uint32_t device;
  uint32_t first_left : 30;  // index of its first subdirectory in `left_`
  uint32_t has_left : 1;     // something could not be removed in this pass
  uint32_t is_second : 1;    // entered again, to be removed after its parent was lost

  DirIdentity identity() const { return {inode, device}; }
};
static_assert(sizeof(Level) == 16);

// An open directory.
struct Stream {
  DIR* directory = nullptr;
  const struct dirent* entry = nullptr;  // the last one read
  int passes = 0;                        // over its entries
  bool has_removed = false;              // something was removed in this pass
  DirIdentity emptied = {};              // the subdirectory for which it was reopened
};

class TreeRemoval {
 public:
  explicit TreeRemoval(const DirEntry& mount) : mount_(mount) {}
  ~TreeRemoval() {
    for (Stream& stream : streams_) close(stream);
  }
  TreeRemoval(const TreeRemoval&) = delete;
  TreeRemoval& operator=(const TreeRemoval&) = delete;

  // Removes a name from an open directory, with everything in it. Returns true if it is
  // gone; otherwise errno is that of the first failure.
  bool remove(int parent, const char* name);

 private:
  enum class Entered { kYes, kLeft, kGone, kNotADirectory };

  Stream& stream_of(size_t level) { return streams_[level % kStreams]; }
  Stream& stream() { return stream_of(levels_.size() - 1); }
  static void close(Stream& stream);

  bool walk(int parent, const char* name);
  bool note(int error);
  int unlink(int parent, const char* name) const;
  bool remove_directory(int parent, const char* name);
  Entered enter(int parent, const char* name);
  Entered enter_opened(Descriptor file);
  bool is_other_top(const DirIdentity& identity) const;
  bool was_left(const DirIdentity& identity);
  bool next_entry();
  void remove_entry();
  bool pass_again();
  bool reopen_parent();
  void leave();

  const DirEntry mount_;  // something on the mount that the removal must not leave
  Array<Level> levels_;
  Array<DirIdentity> left_;  // subdirectories of the levels that could not be removed
  Stream streams_[kStreams];
  DirIdentity top_ = {};       // the directory that the first walk entered
  bool has_lost_way_ = false;  // in this walk
  int error_ = 0;              // of the first failure
};

// Opens a stream, which then owns the descriptor. Null with errno set on failure.
DIR* open_stream(Descriptor& file) {
  DIR* directory = nullptr;
  const auto open = [&] {
    directory = fdopendir(file.get());
    return directory != nullptr ? 0 : -1;
  };
  if (uninterrupted(open) == 0) file.release();
  return directory;
}

void TreeRemoval::close(Stream& stream) {
  if (stream.directory != nullptr) closedir(stream.directory);
  stream = {};
}

// Records the result for an entry: 0 if it was removed, ENOENT if others removed it,
// otherwise the error. Returns true if it is gone.
bool TreeRemoval::note(int error) {
  const bool is_gone = error == 0 || error == ENOENT;
  if (!is_gone && error_ == 0) error_ = error;
  if (levels_.size() != 0) {
    stream().has_removed |= error == 0;
    if (!is_gone) levels_.back().has_left = 1;
  }
  return is_gone;
}

// Removes anything but a directory. Returns 0 or the error: EISDIR for a directory.
int TreeRemoval::unlink(int parent, const char* name) const {
  if (uninterrupted([=] { return unlinkat(parent, name, 0); }) == 0) return 0;
  const int error = errno;
  DirEntry entry;
  const bool is_mount =
      error == EBUSY && examine(parent, name, &entry) && !is_same_mount(entry, mount_);
  return is_mount ? EXDEV : error;
}

// Removes a directory that should be empty. Returns true if it is gone.
bool TreeRemoval::remove_directory(int parent, const char* name) {
  if (uninterrupted([=] { return unlinkat(parent, name, AT_REMOVEDIR); }) == 0) {
    return note(0);
  }
  if (errno == ENOTDIR) return note(unlink(parent, name));  // replaced by something else
  return note(errno);
}

// Enters a directory.
TreeRemoval::Entered TreeRemoval::enter(int parent, const char* name) {
  Descriptor file = open_at(parent, name, kDirectory);
  if (file.is_open()) return enter_opened(std::move(file));
  const int error = errno;
  if (error == ENOTDIR || error == ELOOP) return Entered::kNotADirectory;
  // An unreadable directory can be removed if it is empty.
  const auto remove = [=] { return unlinkat(parent, name, AT_REMOVEDIR); };
  const bool is_gone = note(error != ENOENT && uninterrupted(remove) == 0 ? 0 : error);
  return is_gone ? Entered::kGone : Entered::kLeft;
}

TreeRemoval::Entered TreeRemoval::enter_opened(Descriptor file) {
  DirEntry entry;
  int error = 0;
  if (!examine(file.get(), "", &entry)) {
    error = errno;
  } else if (!is_same_mount(entry, mount_)) {
    error = EXDEV;
  } else if (is_other_top(entry.identity)) {
    error = ESTALE;
  } else if (was_left(entry.identity)) {
    error = ENOTEMPTY;
  } else if (!levels_.reserve() || !left_.reserve()) {
    error = ENOMEM;  // reserves `left_`, too, in case this directory cannot be removed
  }
  DIR* const directory = error == 0 ? open_stream(file) : nullptr;
  if (directory == nullptr) {
    note(error == 0 ? errno : error);
    return Entered::kLeft;
  }
  const bool is_second = levels_.size() != 0 && stream().emptied == entry.identity;
  levels_.add({entry.identity.inode, entry.identity.device, 0, 0, is_second});
  levels_.back().first_left = static_cast<uint32_t>(left_.size()) & 0x3fffffff;
  close(stream());  // the slot still has the stream of a level further up
  stream().directory = directory;
  return Entered::kYes;
}

// Between two walks another directory may have taken the tree's name: it is not the tree.
bool TreeRemoval::is_other_top(const DirIdentity& identity) const {
  return levels_.size() == 0 && top_ != DirIdentity{} && top_ != identity;
}

bool TreeRemoval::was_left(const DirIdentity& identity) {
  const size_t first = levels_.size() == 0 ? 0 : levels_.back().first_left;
  for (size_t i = first; i < left_.size(); ++i) {
    if (left_[i] == identity) return true;
  }
  return false;
}

bool TreeRemoval::next_entry() {
  Stream& current = stream();
  for (;;) {
    errno = 0;
    current.entry = readdir(current.directory);
    if (current.entry != nullptr) {
      if (!is_dot_name(current.entry->d_name)) return true;
    } else if (errno != EINTR) {
      if (errno != 0) note(errno);
      return false;
    }
  }
}

void TreeRemoval::remove_entry() {
  const int parent = dirfd(stream().directory);
  const struct dirent& entry = *stream().entry;
  if (entry.d_type != DT_DIR) {
    const int error = unlink(parent, entry.d_name);
    // The kernel asks for permission before it says that this is a directory.
    const bool is_refused = error == EACCES || error == EPERM;
    if (error != EISDIR && !(is_refused && entry.d_type == DT_UNKNOWN)) {
      note(error);
      return;
    }
  }
  if (enter(parent, entry.d_name) == Entered::kNotADirectory) {
    note(unlink(parent, entry.d_name));
  }
}

// Some filesystems skip entries while others are removed, and other programs may add some.
bool TreeRemoval::pass_again() {
  Stream& current = stream();
  if (!current.has_removed || ++current.passes >= kMostPasses) return false;
  current.has_removed = false;
  levels_.back().has_left = 0;
  rewinddir(current.directory);
  return true;
}

// Reopens the parent of the current directory, if its stream was closed.
bool TreeRemoval::reopen_parent() {
  Stream& above = stream_of(levels_.size() - 2);
  if (above.directory != nullptr) return true;
  Descriptor file = open_at(dirfd(stream().directory), "..", kDirectory);
  if (!file.is_open()) return false;
  DirEntry entry;
  if (!examine(file.get(), "", &entry)) return false;
  if (entry.identity != levels_[levels_.size() - 2].identity()) {
    errno = ESTALE;  // the directory was moved meanwhile
    return false;
  }
  above.directory = open_stream(file);
  return above.directory != nullptr;
}

// Goes back up, and removes the finished directory from its parent.
void TreeRemoval::leave() {
  const Level level = levels_.back();
  has_lost_way_ = levels_.size() > 1 && !reopen_parent();
  if (has_lost_way_) note(errno);
  close(stream());
  left_.cut(has_lost_way_ ? 0 : level.first_left);
  levels_.cut(has_lost_way_ ? 0 : levels_.size() - 1);
  if (levels_.size() == 0) return;
  Stream& above = stream();
  if (above.entry != nullptr) {
    if (remove_directory(dirfd(above.directory), above.entry->d_name)) return;
  } else if (!level.has_left && !level.is_second) {
    above.emptied = level.identity();  // removed when its name is read again
    return;
  } else if (!level.has_left) {
    note(ENOTEMPTY);  // emptied twice, and filled again in between
  }
  levels_.back().has_left = 1;
  left_.add(level.identity());
}

// Removes what can be found from the top. Returns true if the name is gone.
bool TreeRemoval::walk(int parent, const char* name) {
  has_lost_way_ = false;
  const Entered entered = enter(parent, name);
  if (entered == Entered::kNotADirectory) return note(unlink(parent, name));
  if (entered != Entered::kYes) return entered == Entered::kGone;
  top_ = levels_.back().identity();
  while (levels_.size() != 0) {
    if (next_entry()) {
      remove_entry();
    } else if (!pass_again()) {
      leave();
    }
  }
  // What failed may have been removed in a later pass, or by others.
  return remove_directory(parent, name);
}

bool TreeRemoval::remove(int parent, const char* name) {
  for (int walks = 0; walks < kMostWalks; ++walks) {
    if (walk(parent, name)) return true;
    if (!has_lost_way_) break;
  }
  errno = error_;
  return false;
}

// --- The path.

// A path cut before its last component.
struct Target {
  Owned<char> text;
  const char* parent;
  const char* name;
  bool is_directory;  // a slash follows the name
};

// False with errno set when there is no such component that could be removed.
bool split(const char* path, Target* target) {
  size_t end = std::strlen(path);
  target->is_directory = end > 0 && path[end - 1] == '/';
  while (end > 0 && path[end - 1] == '/') --end;
  size_t begin = end;
  while (begin > 0 && path[begin - 1] != '/') --begin;
  target->text.reset(static_cast<char*>(std::malloc(end + 1)));
  char* const text = target->text.get();
  if (text == nullptr) return false;
  std::memcpy(text, path, end);
  text[end] = '\0';
  target->name = text + begin;
  target->parent = begin == 0 ? "." : begin == 1 ? "/" : text;
  if (begin > 1) text[begin - 1] = '\0';
  if (target->name[0] != '\0' && !is_dot_name(target->name)) return true;
  errno = EINVAL;
  return false;
}

bool remove_path(const char* path) {
  Target target;
  if (!split(path, &target)) return false;
  const Descriptor parent = open_at(AT_FDCWD, target.parent, O_PATH | O_DIRECTORY);
  DirEntry above;
  DirEntry entry;
  if (!parent.is_open() || !examine(parent.get(), "", &above) ||
      !examine(parent.get(), target.name, &entry)) {
    return false;
  }
  if (target.is_directory && !entry.is_directory) {
    errno = ENOTDIR;
    return false;
  }
  if (entry.is_directory && !is_same_mount(entry, above)) {
    errno = EXDEV;
    return false;
  }
  return TreeRemoval(above).remove(parent.get(), target.name);
}

}  // namespace

extern "C" int g_dir_remove(const char* path) {
  CHECK_ARG(path != NULL, fail(EINVAL));
  const CancellationHeld held;
  return remove_path(path) ? 0 : -1;
}
