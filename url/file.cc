// The file module: local files and standard input, read through their descriptors without a
// buffer, so that the descriptor is always at the stream's position. If a program sets a
// view of bytes in memory, all operations work on that instead.
//
// SPDX-License-Identifier: MIT

#include <groundwork/url.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include "url/copy_line.h"
#include "url/file_lines.h"
#include "url/unique_fd.h"

using groundwork::ends_line;
using groundwork::file_gets;
using groundwork::kept_above_output;
using groundwork::kLineAlignment;
using groundwork::kNoLine;
using groundwork::kUncounted;
using groundwork::UniqueFd;

namespace {

constexpr int32_t kNoByte = -1;
constexpr int kStandardInput = 0;
constexpr int kNoDescriptor = -1;

// The sizes of the pieces that the line reader reads from files, close to those of lines.
constexpr size_t kSmallestPiece = 128;
constexpr size_t kSmallestSecondPiece = 256;
constexpr size_t kLargestPiece = 3584;

// After this many equal lengths in a row the next line is expected to have the same length.
constexpr uint32_t kRecords = 2;

// What url_file_open() allocates. The fields after the public record are for the line
// reader.
struct FileStream {
  URL_file file;
  int32_t examined_fd;  // the descriptor that `rereads` is about
  bool rereads;         // it can step back and will find the same bytes
  uint32_t longest;     // length of the longest recent line
  uint32_t last;        // length of the last line
  uint32_t repeats;     // lines before it of the same length
  uint32_t skipped;     // bytes of empty lines before the last line
};

// True for plain files that occupy blocks. Files that the kernel generates while they are
// read occupy none, and may read differently after a step back.
bool can_reread(int fd) {
  struct stat status;
  const int saved_errno = errno;
  const bool can = fd > kStandardInput && fstat(fd, &status) == 0 &&
                   S_ISREG(status.st_mode) && status.st_blocks > 0;
  errno = saved_errno;
  return can;
}

// The same for a stream; a program may replace its descriptor.
bool can_reread(FileStream& stream) {
  const int fd = stream.file.fd;
  if (stream.examined_fd != fd) {
    stream.rereads = can_reread(fd);
    stream.examined_fd = fd;
  }
  return stream.rereads;
}

URL_file& file_of(URL url) {
  return *reinterpret_cast<URL_file*>(url);
}

// Bytes of the view after its position; 0 if a program set the position outside the view.
uint32_t remaining_in_view(const URL_file& file) {
  if (file.position < 0 || file.position >= int64_t{file.size}) return 0;
  return static_cast<uint32_t>(file.size - file.position);
}

// Copies the next `count` bytes of the view.
void read_from_view(URL_file& file, void* buf, uint32_t count) {
  std::memcpy(buf, file.data + file.position, count);
  file.position += count;
}

int32_t file_read(URL url, void* buf, int32_t n) {
  URL_file& file = file_of(url);
  if (file.data != nullptr) {
    const uint32_t count =
        std::min(static_cast<uint32_t>(std::max(n, 0)), remaining_in_view(file));
    read_from_view(file, buf, count);
    return static_cast<int32_t>(count);
  }
  const auto count = static_cast<int32_t>(read(file.fd, buf, static_cast<size_t>(n)));
  if (count == -1) url_errno = errno;
  return count;
}

// Out of line, so that its caller sets up one frame only.
[[gnu::noinline]] int32_t gets_from_view(URL_file& file, char* buf, int32_t n) {
  const uint32_t left = remaining_in_view(file);
  if (left == 0) return kNoLine;
  if (n < 1) return kUncounted;
  uint32_t count = std::min(static_cast<uint32_t>(n - 1), left);
  const uint8_t* const line = file.data + file.position;
  const void* const end = std::memchr(line, url_newline_code, count);
  if (end != nullptr) {
    count = static_cast<uint32_t>(static_cast<const uint8_t*>(end) - line) + 1;
  }
  read_from_view(file, buf, count);
  buf[count] = '\0';
  return kUncounted;
}

// Ends a line at the end of the file, after `length` bytes; there is none after 0.
// Kept: the terminator is written one byte too far, after a byte that the buffer held
// before.
int32_t end_at_end_of_file(char* buf, int32_t length) {
  if (length == 0) return kNoLine;
  buf[length + 1] = '\0';
  return kUncounted;
}

// Reads a line, of which `length` bytes are in the buffer, byte by byte: for files that
// cannot step back.
int32_t gets_by_bytes(int fd, char* buf, int32_t n, int32_t length) {
  while (length < n - 1) {
    if (read(fd, buf + length, 1) == 0) return end_at_end_of_file(buf, length);
    // Kept: a failed read counts as a byte, too, the one that the buffer held before.
    if (ends_line(buf[length++])) break;
  }
  buf[length] = '\0';
  return kUncounted;
}

// How much to read for the next line: more than needed, since an extra read costs more than
// extra bytes; but lines of equal length are read exactly, which saves the step back.
size_t first_piece_size(const FileStream& stream) {
  if (stream.repeats >= kRecords && stream.last <= kLargestPiece) return stream.last;
  const size_t expected = size_t{stream.longest} + stream.longest / 4;
  return std::clamp(expected, kSmallestPiece, kLargestPiece);
}

// How much to read next of a line that is longer, of which `length` bytes were read, the
// last `size` of them together: as much again, and then all.
size_t next_piece_size(size_t length, size_t size) {
  return length == size ? std::max(length, kSmallestSecondPiece) : kLargestPiece;
}

void note_line_length(FileStream& stream, uint32_t length) {
  // Decays, so that pieces shrink again some time after a long line.
  stream.longest = std::max(length, stream.longest - stream.longest / 16);
  stream.repeats = length == stream.last ? std::min(stream.repeats + 1, kRecords) : 0;
  stream.last = length;
}

// Where in a buffer for pieces the next one is to begin: all of it but the first `skipped`
// bytes is copied to `to`, see copy_line().
size_t piece_start(const char* to, size_t skipped) {
  return (reinterpret_cast<uintptr_t>(to) - skipped) % kLineAlignment;
}

int32_t file_fgetc(URL url) {
  URL_file& file = file_of(url);
  uint8_t byte;
  if (file.data != nullptr) {
    if (remaining_in_view(file) == 0) return kNoByte;
    read_from_view(file, &byte, 1);
    return byte;
  }
  return read(file.fd, &byte, 1) == 1 ? byte : kNoByte;
}

int64_t seek_in_view(URL_file& file, int64_t offset, int32_t whence) {
  int64_t base = 0;
  switch (whence) {
    case SEEK_SET:
      break;
    case SEEK_CUR:
      base = file.position;
      break;
    case SEEK_END:
      base = file.size;
      break;
    default:
      base = file.position;
      offset = 0;
      break;
  }
  int64_t position;
  if (__builtin_add_overflow(base, offset, &position)) position = offset;
  file.position = std::clamp(position, int64_t{0}, int64_t{file.size});
  return file.position;
}

int64_t file_seek(URL url, int64_t offset, int32_t whence) {
  URL_file& file = file_of(url);
  if (file.data != nullptr) return seek_in_view(file, offset, whence);
  return lseek(file.fd, offset, whence);
}

int64_t file_tell(URL url) {
  const URL_file& file = file_of(url);
  return file.data != nullptr ? file.position : lseek(file.fd, 0, SEEK_CUR);
}

// Holds off cancellation: a thread that is cancelled before it closes never does.
void file_close(URL url) {
  int former_state = PTHREAD_CANCEL_ENABLE;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &former_state);
  const int fd = file_of(url).fd;
  if (fd > kStandardInput) {
    close(fd);
  } else if (fd == kStandardInput) {
    lseek(fd, 0, SEEK_SET);
  }
  std::free(url);
  pthread_setcancelstate(former_state, nullptr);
}

// The length of a leading "file:" in any letter case, 0 if there is none. Compared as
// ASCII: in some locales "FILE:" has another lower case.
size_t scheme_length(const char* name) {
  constexpr std::string_view kScheme = "file:";
  for (size_t i = 0; i < kScheme.size(); ++i) {
    const char c =
        name[i] >= 'A' && name[i] <= 'Z' ? static_cast<char>(name[i] + 32) : name[i];
    if (c != kScheme[i]) return 0;
  }
  return kScheme.size();
}

int32_t file_name_check(const char* url) {
  if (scheme_length(url) != 0) return 1;
  const char* const stop = url + std::strcspn(url, ":/");
  return stop[0] == ':' && stop[1] == '/' ? 0 : 1;
}

// Opens a name other than "-"; -1 with `errno` set on failure, ENOENT if the name is empty
// after its scheme.
int open_path(const char* name) {
  const char* const path = url_expand_home_dir(name + scheme_length(name));
  errno = 0;
  return kept_above_output(open(path, O_RDONLY | O_CLOEXEC));
}

// Reads the next bytes of the file, within the read limit; 0 at the end and on failure.
// Adds them to `nread`; a read that returns none counts as one byte.
size_t read_piece(FileStream& stream, char* piece, size_t size) {
  URL_record& common = stream.file.common;
  if (common.nread >= common.readlimit) {
    common.eof = 1;
    return 0;
  }
  size = std::min(size, size_t{common.readlimit - common.nread});
  const ssize_t count = read(stream.file.fd, piece, size);
  common.nread += count > 0 ? static_cast<uint32_t>(count) : 1;
  return count > 0 ? static_cast<size_t>(count) : 0;
}

// Puts back the last bytes of a piece.
void put_back(FileStream& stream, size_t count) {
  if (count == 0) return;
  stream.file.common.nread -= static_cast<uint32_t>(count);
  lseek(stream.file.fd, -static_cast<off_t>(count), SEEK_CUR);
}

}  // namespace

// Files are read in pieces, with a step back to the end of the line. The pieces have a
// buffer of their own, since the bytes of `buf` after the line must not change.
int32_t groundwork::gets_from_file(URL url, char* buf, int32_t n) {
  auto& stream = *reinterpret_cast<FileStream*>(url);
  if (stream.file.data != nullptr) return gets_from_view(stream.file, buf, n);
  if (n < 2) {
    buf[0] = '\0';
    return 0;
  }
  const int fd = stream.file.fd;
  if (!can_reread(stream)) return gets_by_bytes(fd, buf, n, 0);
  alignas(kLineAlignment) char pieces[kLargestPiece + kLineAlignment - 1];
  size_t size = first_piece_size(stream);
  int32_t length = 0;
  bool may_have_nul = false;
  do {
    if (length != 0) size = next_piece_size(static_cast<size_t>(length), size);
    char* const piece = pieces + piece_start(buf + length, 0);
    const ssize_t count =
        read(fd, piece, std::min(size, static_cast<size_t>(n - 1 - length)));
    if (count == 0) return end_at_end_of_file(buf, length);
    if (count < 0) {
      // The read of the next byte failed, which counts as a byte, as in gets_by_bytes().
      if (ends_line(buf[length++])) break;
      return gets_by_bytes(fd, buf, n, length);
    }
    const auto taken = static_cast<int32_t>(
        copy_line(buf + length, {piece, static_cast<size_t>(count)}, &may_have_nul));
    length += taken;
    if (taken < count) lseek(fd, off_t{taken} - count, SEEK_CUR);
  } while (!ends_line(buf[length - 1]) && length < n - 1);
  note_line_length(stream, static_cast<uint32_t>(length));
  buf[length] = '\0';
  return may_have_nul ? kUncounted : length;
}

char* groundwork::file_gets(URL url, char* buf, int32_t n) {
  return gets_from_file(url, buf, n) != kNoLine ? buf : nullptr;
}

bool groundwork::is_read_in_pieces(URL url) {
  // Checks both: only records that this module made have the fields after the public ones.
  if (url->fgetc != file_fgetc || url->gets != file_gets) return false;
  auto& stream = *reinterpret_cast<FileStream*>(url);
  return stream.file.data == nullptr && can_reread(stream);
}

int32_t groundwork::read_line_in_pieces(URL url, char* buf, int32_t n) {
  auto& stream = *reinterpret_cast<FileStream*>(url);
  alignas(kLineAlignment) char pieces[kLargestPiece + kLineAlignment - 1];
  size_t size = first_piece_size(stream);
  size_t consumed = 0;
  size_t length = 0;
  const auto room = static_cast<size_t>(n - 1);
  while (length < room) {
    if (consumed != 0) size = next_piece_size(consumed, size);
    char* const piece =
        pieces + piece_start(buf + length, length == 0 ? stream.skipped : 0);
    const size_t count = read_piece(stream, piece, std::min(size, room - length));
    if (count == 0) break;
    std::string_view bytes(piece, count);
    // Skips empty lines. Each leaves its byte at the start of the buffer.
    while (length == 0 && !bytes.empty() && ends_line(bytes.front())) {
      buf[0] = bytes.front();
      bytes.remove_prefix(1);
    }
    if (length == 0) stream.skipped = static_cast<uint32_t>(count - bytes.size());
    const size_t taken = copy_line(buf + length, bytes, nullptr);
    const size_t left = bytes.size() - taken;
    length += taken;
    consumed += count - left;
    if (taken != 0 && ends_line(buf[length - 1])) {
      put_back(stream, left);
      --length;
      break;
    }
  }
  if (length == 0) return 0;
  note_line_length(stream, static_cast<uint32_t>(consumed));
  buf[length] = '\0';
  return static_cast<int32_t>(length);
}

extern "C" {

URL_module URL_module_file = {URL_FILE, file_name_check, nullptr, url_file_open, nullptr};

URL url_file_open(const char* name) {
  const int fd = std::strcmp(name, "-") == 0 ? kStandardInput : open_path(name);
  UniqueFd owned(fd == kStandardInput ? kNoDescriptor : fd);  // standard input is not ours
  const URL url = fd != kNoDescriptor ? alloc_url(sizeof(FileStream)) : nullptr;
  if (url == nullptr) [[unlikely]] {
    url_errno = errno;
    return nullptr;
  }
  owned.release();
  auto& stream = *reinterpret_cast<FileStream*>(url);
  stream.file.fd = fd;
  stream.examined_fd = kNoDescriptor;
  url->type = URL_FILE;
  url->read = file_read;
  url->gets = file_gets;
  url->fgetc = file_fgetc;
  url->close = file_close;
  if (fd != kStandardInput) {
    url->seek = file_seek;
    url->tell = file_tell;
    // The low 32 bits of the size; for a pipe -1, which is practically no limit.
    file_seek(url, 0, SEEK_END);
    url->readlimit = static_cast<uint32_t>(file_tell(url));
    file_seek(url, 0, SEEK_SET);
  }
  return url;
}

}  // extern "C"
