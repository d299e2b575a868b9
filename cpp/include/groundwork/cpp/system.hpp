/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_SYSTEM_HPP
#define GROUNDWORK_CPP_SYSTEM_HPP

#include <groundwork/dir.h>
#include <groundwork/file.h>
#include <groundwork/file_map.h>
#include <groundwork/sys.h>
#include <groundwork/cpp/result.hpp>
#include <groundwork/cpp/text.hpp>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <optional>

namespace gw {

/**
 * An open file, closed by the destructor.
 *
 * @code{.cpp}
 * gw::File file("levels", gw::File::kCreate);
 * if (!file) return 1;
 * if (file.write("low high") != 8) return 1;
 * file.close();
 * puts(gw::read_file("levels").data());  // prints: low high
 * @endcode
 */
class File {
 public:
  /** What a file is opened for. */
  enum Mode {
    kRead = 0,   /**< read an existing file */
    kUpdate = 1, /**< write an existing file from its start, keeping its content */
    kCreate = 2, /**< write a new or emptied file */
  };

  File() = default;
  /** Opens a file, as g_file_open(). @param filename not null. @param mode the purpose. */
  explicit File(const Text& filename, Mode mode = kRead)
      : file_(g_file_open(filename, mode)) {}

  /** @return whether it is open. */
  explicit operator bool() const { return file_ != nullptr; }
  /** @return the handle, still owned here. */
  [[nodiscard]] GFile* get() const { return file_.get(); }
  /** Reads once, as g_file_read(). @param buffer room for `size` bytes. @param size the maximum.
   *  @return the number of bytes read; 0 at the end, -1 on failure. */
  [[nodiscard]] int64_t read(void* buffer, int64_t size) {
    return g_file_read(get(), buffer, size);
  }
  /** Writes once, as g_file_write(). @param bytes to write. @return the number of bytes written,
   *  which may be smaller; -1 on failure. */
  [[nodiscard]] int64_t write(std::string_view bytes) {
    return g_file_write(get(), bytes.data(), static_cast<int64_t>(bytes.size()));
  }
  /** Moves the offset, as g_file_seek(). @param offset in bytes, relative to `whence`.
   *  @param whence SEEK_SET, SEEK_CUR or SEEK_END. @return the new offset; -1 on failure. */
  int64_t seek(int64_t offset, int whence = SEEK_SET) {
    return g_file_seek(get(), offset, whence);
  }
  /** Truncates the file at its offset. @return true on success. */
  [[nodiscard]] bool truncate() { return g_file_truncate(get()) == 0; }
  /** Takes a shared lock between processes, without waiting. @return whether it is held. */
  [[nodiscard]] bool lock_read() { return g_file_lock_read(get()) == 0; }
  /** Takes an exclusive lock between processes, without waiting. @return whether it is held. */
  [[nodiscard]] bool lock_write() { return g_file_lock_write(get()) == 0; }
  /** Releases the lock. @return true on success. */
  bool unlock() { return g_file_unlock(get()) == 0; }
  /** Closes it. */
  void close() { file_.reset(); }

 private:
  SystemOwner<GFile, g_file_close> file_;
};

/**
 * A read-only mapped region of a file. The warnings of file_map.h apply: the destructor unmaps
 * only the first page of a longer region.
 *
 * @code{.cpp}
 * const gw::FileMap map("notes.txt", 0, 3);
 * if (map) printf("%.3s\n", map.bytes().data());  // prints: one
 * @endcode
 */
class FileMap {
 public:
  FileMap() = default;
  /** Maps a region, as g_file_map() with mode 0. @param filename not null.
   *  @param offset in bytes, a multiple of g_file_map_page_size(). @param length in bytes. */
  FileMap(const Text& filename, int64_t offset, int64_t length)
      : map_(g_file_map(filename, offset, length, 0, nullptr)) {}

  /** @return whether there is a region. */
  explicit operator bool() const { return map_ != nullptr; }
  /** @return the handle, still owned here. */
  [[nodiscard]] GFileMap* get() const { return map_.get(); }
  /** @return the mapped bytes. */
  [[nodiscard]] std::string_view bytes() const {
    int64_t length = 0;
    if (map_ == nullptr) return {};
    const void* const address = g_file_map_get_addr(get(), &length);
    return {static_cast<const char*>(address), static_cast<size_t>(length)};
  }

 private:
  SystemOwner<GFileMap, g_file_unmap> map_;
};

/** Reads a whole file, as g_file_read_buf(). @param filename not null.
 *  @return the content; none on failure. */
[[nodiscard]] inline Bytes read_file(const Text& filename) {
  int64_t size = 0;
  char* const content = g_file_read_buf(filename, &size);
  return Bytes(content, static_cast<size_t>(size));
}

/** Creates or empties a file and writes all of it. A failure may leave part of the content, where
 *  replace_file() leaves the old file. @param filename not null. @param bytes the content.
 *  @return success if everything was written. */
inline Result<void> write_file(const Text& filename, std::string_view bytes) {
  errno = 0;
  File file(filename, File::kCreate);
  if (!file) return Error(errno == 0 ? EINVAL : errno);
  while (!bytes.empty()) {
    const int64_t count = file.write(bytes);
    if (count < 0) return Error(errno);
    bytes.remove_prefix(static_cast<size_t>(count));
  }
  return {};
}

/**
 * The lines of a file for range-based `for`, without line ends, empty lines included. The file is
 * read as a whole; the lines are valid as long as this object.
 *
 * @code{.cpp}
 * const gw::Lines lines("notes.txt");
 * for (const std::string_view line : lines) printf("%zu\n", line.size());
 * // prints: 3
 * // prints: 0
 * // prints: 3
 * @endcode
 */
class Lines {
 public:
  /** Goes from line to line. */
  class iterator {
   public:
    /** Kind of iterator. */
    using iterator_category = std::input_iterator_tag;
    /** What it yields. */
    using value_type = std::string_view;
    /** Distance between two. */
    using difference_type = ptrdiff_t;
    /** Not used. */
    using pointer = const std::string_view*;
    /** What it yields. */
    using reference = std::string_view;

    /** @param rest the text from the line on. */
    explicit iterator(std::string_view rest) : rest_(rest) {}
    /** @return the line. */
    std::string_view operator*() const {
      std::string_view line = rest_.substr(0, rest_.find('\n'));
      if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
      return line;
    }
    /** @return this, advanced by one. */
    iterator& operator++() {
      const size_t end = rest_.find('\n');
      rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
      return *this;
    }
    /** @return a copy from before the advance. */
    iterator operator++(int) {
      iterator before = *this;
      ++*this;
      return before;
    }
    /** @param other of the same lines. @return whether both are at the same line. */
    bool operator==(const iterator& other) const {
      return rest_.size() == other.rest_.size();
    }
    /** @param other of the same lines. @return whether they are at different lines. */
    bool operator!=(const iterator& other) const { return !(*this == other); }

   private:
    std::string_view rest_;
  };

  /** Reads a file, as g_file_read_buf(). @param filename not null. */
  explicit Lines(const Text& filename) : content_(read_file(filename)) {}

  /** @return whether the file could be read. */
  explicit operator bool() const { return static_cast<bool>(content_); }
  /** @return the first line. */
  [[nodiscard]] iterator begin() const { return iterator(content_.view()); }
  /** @return past the last. */
  [[nodiscard]] iterator end() const {
    return iterator(content_.view().substr(content_.size()));
  }

 private:
  Bytes content_;
};

/** Names in a directory. */
using Names = StringArray<g_dir_list_free>;

/** Which entries of a directory are listed. */
enum class Entries {
  kAll = 0,         /**< everything */
  kDirectories = 1, /**< only directories */
  kOthers = 2       /**< all but directories */
};

/** Lists a directory, as g_dir_list(): sorted names, without "." and "..".
 *  @param path not null. @param kind which entries. @return the names; none on failure. */
[[nodiscard]] inline Names list_directory(const Text& path, Entries kind = Entries::kAll) {
  return Names(g_dir_list(path, static_cast<int>(kind), nullptr));
}

/** Calls a function for each file of a tree, as g_scandir(). Links to directories are followed.
 *  @param path     the top directory, not null.
 *  @param function takes a `const char *`, the path of a file, and a `const struct stat64 *`,
 *                  the result of stat(); returns an int, and is noexcept.
 *  @return the sum of the results for files directly in `path`. */
template <typename Function>
int scan_directory(const Text& path, Function&& function) {
  using Given = std::remove_reference_t<Function>;
  detail::require_noexcept<Given, const char*, const struct stat64*>();
  return g_scandir(
      path,
      [](const char* name, const struct stat64* status, void* given) -> int {
        return (*static_cast<Given*>(given))(name, status);
      },
      detail::untyped(std::addressof(function)));
}

/** @param filename not null. @return whether it is a regular file. */
[[nodiscard]] inline bool file_exists(const Text& filename) {
  return g_file_exist(filename) != 0;
}
/** @param path not null. @return whether it is a directory. */
[[nodiscard]] inline bool directory_exists(const Text& path) {
  return g_dir_exist(path) != 0;
}
/** @param filename not null. @return its size in bytes; none when there is no such file. */
[[nodiscard]] inline std::optional<int64_t> file_size(const Text& filename) {
  const int64_t size = g_file_size(filename);
  if (size < 0) return std::nullopt;
  return size;
}
/** Size and free space of a filesystem. */
struct FilesystemUsage {
  uint32_t total_kb;     /**< size in units of 1024 bytes */
  uint32_t available_kb; /**< space available to unprivileged users */
};

/** @param path on the filesystem. @return its figures; none when g_sys_get_filesystem_usage()
 *  fails, which it also does for a full filesystem. */
[[nodiscard]] inline std::optional<FilesystemUsage> filesystem_usage(const Text& path) {
  FilesystemUsage usage{};
  if (g_sys_get_filesystem_usage(path, &usage.total_kb, &usage.available_kb) != 0) {
    return std::nullopt;
  }
  return usage;
}

}  // namespace gw

#endif
