/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_SYSTEM_HPP
#define GROUNDWORK_CPP_SYSTEM_HPP

#include <groundwork/cpp/text.hpp>
#include <groundwork/dir.h>
#include <groundwork/file.h>
#include <groundwork/file_map.h>
#include <groundwork/sys.h>

#include <cstdint>
#include <cstdio>
#include <optional>

namespace gw {

/** An open file, closed by its owner's end. */
class File {
 public:
  /** What a file is opened for. */
  enum Mode {
    kRead = 0,   /**< read an existing file */
    kUpdate = 1, /**< write an existing file from its start, keeping its content */
    kCreate = 2, /**< write a new or emptied file */
  };

  File() = default;
  /** Opens a file, as g_file_open(). @param filename not null. @param mode what for. */
  explicit File(const Text &filename, Mode mode = kRead) : file_(g_file_open(filename, mode)) {}

  /** @return whether it is open. */
  explicit operator bool() const { return file_ != nullptr; }
  /** @return the handle, still owned here. */
  GFile *get() const { return file_.get(); }
  /** Reads once, as g_file_read(). @param buffer as there. @param size as there.
   *  @return as there. */
  std::int64_t read(void *buffer, std::int64_t size) { return g_file_read(get(), buffer, size); }
  /** Writes once, as g_file_write(). @param bytes what. @return as there. */
  std::int64_t write(std::string_view bytes) {
    return g_file_write(get(), bytes.data(), static_cast<std::int64_t>(bytes.size()));
  }
  /** Moves the offset, as g_file_seek(). @param offset as there. @param whence as there.
   *  @return as there. */
  std::int64_t seek(std::int64_t offset, int whence = SEEK_SET) {
    return g_file_seek(get(), offset, whence);
  }
  /** Cuts the file at its offset. @return whether that worked. */
  bool truncate() { return g_file_truncate(get()) == 0; }
  /** Takes a shared lock, between processes, without waiting. @return whether it is held. */
  bool lock_read() { return g_file_lock_read(get()) == 0; }
  /** Takes an exclusive lock, between processes, without waiting. @return whether it is
   *  held. */
  bool lock_write() { return g_file_lock_write(get()) == 0; }
  /** Gives the lock back. @return whether that worked. */
  bool unlock() { return g_file_unlock(get()) == 0; }
  /** Closes it. */
  void close() { file_.reset(); }

 private:
  SystemOwner<GFile, g_file_close> file_;
};

/** A mapped region of a file, to be read. The warnings of file_map.h hold: of a longer region
 *  only the first page is given back. */
class FileMap {
 public:
  FileMap() = default;
  /** Maps a region, as g_file_map() with mode 0. @param filename as there.
   *  @param offset as there. @param length as there. */
  FileMap(const Text &filename, std::int64_t offset, std::int64_t length)
      : map_(g_file_map(filename, offset, length, 0, nullptr)) {}

  /** @return whether there is a region. */
  explicit operator bool() const { return map_ != nullptr; }
  /** @return the handle, still owned here. */
  GFileMap *get() const { return map_.get(); }
  /** @return the mapped bytes. */
  std::string_view bytes() const {
    std::int64_t length = 0;
    if (map_ == nullptr) return {};
    const void *const address = g_file_map_get_addr(get(), &length);
    return {static_cast<const char *>(address), static_cast<std::size_t>(length)};
  }

 private:
  SystemOwner<GFileMap, g_file_unmap> map_;
};

/** Names in a directory. */
using Names = StringArray<g_dir_list_free>;

/** Lists a directory, as g_dir_list(). @param path as there. @param filter as there.
 *  @return the names; none on failure. */
inline Names list_directory(const Text &path, int filter = 0) {
  return Names(g_dir_list(path, filter, nullptr));
}

/** Calls a function for each file of a tree, as g_scandir().
 *  @param path     as there.
 *  @param function takes path and status as there, and returns an int; may be a lambda. Must
 *                  not throw.
 *  @return as there. */
template <typename Function>
int scan_directory(const Text &path, Function &&function) {
  using Given = std::remove_reference_t<Function>;
  return g_scandir(
      path,
      [](const char *name, const struct stat64 *status, void *given) -> int {
        return (*static_cast<Given *>(given))(name, status);
      },
      detail::untyped(std::addressof(function)));
}

/** @param filename not null. @return whether it is a regular file. */
inline bool file_exists(const Text &filename) { return g_file_exist(filename) != 0; }
/** @param path not null. @return whether it is a directory. */
inline bool directory_exists(const Text &path) { return g_dir_exist(path) != 0; }
/** @param filename not null. @return its size in bytes; none when there is no such file. */
inline std::optional<std::int64_t> file_size(const Text &filename) {
  const std::int64_t size = g_file_size(filename);
  if (size < 0) return std::nullopt;
  return size;
}
/** Reads a whole file, as g_file_read_buf(). @param filename not null.
 *  @return the content; none on failure. */
inline Bytes read_file(const Text &filename) {
  std::int64_t size = 0;
  char *const content = g_file_read_buf(filename, &size);
  return Bytes(content, static_cast<std::size_t>(size));
}

/** Size and free space of a filesystem. */
struct FilesystemUsage {
  std::uint32_t total_kb;     /**< size in units of 1024 bytes */
  std::uint32_t available_kb; /**< what unprivileged users may have of it */
};

/** @param path on the filesystem. @return its figures; none as g_sys_get_filesystem_usage()
 *  says, so also when it is full. */
inline std::optional<FilesystemUsage> filesystem_usage(const Text &path) {
  FilesystemUsage usage{};
  if (g_sys_get_filesystem_usage(path, &usage.total_kb, &usage.available_kb) != 0) {
    return std::nullopt;
  }
  return usage;
}

}  // namespace gw

#endif
