// What the generic stream operations do, and what the streams of each kind do for them.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_FUZZ_URL_STREAM_MODEL_H
#define GROUNDWORK_FUZZ_URL_STREAM_MODEL_H

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "fuzz/support/buffer.h"

namespace fuzz {

inline std::string c_string(const std::string& bytes) {
  return bytes.c_str();
}

// One stream: its bytes, its position, and the operations that its module has.
class StreamModel {
 public:
  enum Kind { kFile, kView, kHttp, kOwn };

  Kind kind = kFile;
  std::string bytes;
  int64_t position = 0;
  bool has_gets = true;
  bool has_fgetc = true;
  bool has_seek = true;
  bool has_tell = true;
  int32_t longest_read = INT32_MAX;  // our own module gives no more in one call
  int interrupted_every = 0;         // and is interrupted now and then

  uint32_t nread = 0;
  uint32_t limit = 0x7fffffff;
  int32_t eof = 0;
  char newline = '\n';
  bool refused = false;  // the last seek

  // --- The generic operations. Buffers are strings of the caller's buffer's length.

  int32_t read(std::string& buffer, int32_t n) { return read_at(buffer, 0, n); }

  int32_t safe_read(std::string& buffer, size_t at, int32_t n) {
    if (n < 1) return 0;
    int32_t result;
    do {
      was_interrupted_ = false;
      result = read_at(buffer, at, n);
    } while (result == -1 && was_interrupted_);
    return result;
  }

  int32_t read_all(std::string& buffer, int32_t n) {
    int32_t total = 0;
    do {
      const int32_t count = safe_read(buffer, static_cast<size_t>(total), n - total);
      if (count <= 0) return total > 0 ? total : count;
      total += count;
    } while (total < n);
    return total;
  }

  // False for null.
  bool gets(std::string& buffer, int32_t n) {
    if (nread >= limit) return false;
    if (has_gets) {
      if (nread + static_cast<uint32_t>(n) > limit) {
        n = static_cast<int32_t>(limit - nread + 1);
      }
      if (!gets_slot(buffer, n)) return false;
      nread += static_cast<uint32_t>(c_string(buffer).size());
      return true;
    }
    if (n == 1) buffer[0] = '\0';
    if (n < 2) return true;
    size_t length = 0;
    while (length < static_cast<size_t>(n - 1)) {
      const int32_t byte = character();
      if (byte == -1) break;
      buffer[length++] = static_cast<char>(byte);
      if (static_cast<char>(byte) == newline) break;
    }
    if (length == 0) return false;
    buffer[length] = '\0';
    return true;
  }

  int32_t readline(std::string& buffer, int32_t n) {
    if (n == 1) buffer[0] = '\0';
    if (n < 2) return 0;
    while (true) {
      int32_t length = 0;
      int32_t byte = 0;
      const auto ends = [&byte] { return byte == 13 || byte == 10; };
      while (length < n - 1) {
        byte = character();
        if (byte == -1) break;
        buffer[static_cast<size_t>(length++)] = static_cast<char>(byte);
        if (ends()) break;
      }
      if (length == 0) return 0;
      if (length == 1 && ends()) continue;
      if (ends()) --length;
      buffer[static_cast<size_t>(length)] = '\0';
      return length;
    }
  }

  int32_t fgetc() {
    if (nread >= limit) return -1;
    ++nread;
    if (has_fgetc) return fgetc_slot();
    std::string byte(1, '\0');
    return read(byte, 1) < 1 ? -1 : static_cast<unsigned char>(byte[0]);
  }

  int64_t seek(int64_t offset, int32_t whence) {
    refused = false;
    if (has_seek) {
      nread = 0;
      return seek_slot(offset, whence);
    }
    if (whence == SEEK_CUR && offset >= 0) {
      const int64_t before = tell();
      if (offset != 0) skip_without_limit(offset);
      return before;
    }
    const int64_t before = tell();
    if (whence != SEEK_SET || before == -1 || offset < before) {
      refused = true;
      return -1;
    }
    if (offset != before) skip_without_limit(offset - before);
    return before;
  }

  int64_t tell() const { return has_tell ? position : int64_t{nread}; }

  void skip(int64_t n) {
    if (has_seek) {
      if (nread >= limit) return;
      if (int64_t{nread} + n > int64_t{limit}) n = limit - nread;
      if (seek_slot(n, SEEK_CUR) != -1) {
        nread += static_cast<uint32_t>(n);
        return;
      }
    }
    std::string scratch(8192, '\0');
    while (n > 0) {
      const int32_t count = read(scratch, static_cast<int32_t>(std::min(n, int64_t{8192})));
      if (count <= 0) return;
      n -= count;
    }
  }

  void rewind() {
    if (has_seek) {
      seek_slot(0, SEEK_SET);
    } else {
      nread = 0;
    }
  }

  void set_limit(int32_t value) {
    limit = value < 0 ? 0x7fffffffU : static_cast<uint32_t>(value);
    nread = 0;
  }

  // --- What the module does. Our own module's code, too, when `kind` is kOwn.

  int32_t read_slot(std::string& buffer, size_t at, int32_t n) {
    if (interrupted_every != 0 && ++reads_ % interrupted_every == 0) {
      was_interrupted_ = true;
      return -1;
    }
    n = std::min(n, longest_read);
    const size_t count = std::min(static_cast<size_t>(n), left());
    if (count != 0) {
      buffer.replace(at, count, bytes, static_cast<size_t>(position), count);
    }
    position += static_cast<int64_t>(count);
    return static_cast<int32_t>(count);
  }

  bool gets_slot(std::string& buffer, int32_t n) {
    switch (kind) {
      case kFile:
        return file_gets(buffer, n);
      case kView:
        if (left() == 0) return false;
        if (n < 1) return true;
        return line_until(newline, buffer, n);
      default:
        // As the system's line reader: null at the end, but not when there is no room.
        if (n == 1) {
          buffer[0] = '\0';
          return true;
        }
        if (left() == 0) return false;
        return line_until('\n', buffer, n);
    }
  }

  int32_t fgetc_slot() {
    return left() == 0 ? -1 : static_cast<unsigned char>(bytes[take_position()]);
  }

  int64_t seek_slot(int64_t offset, int32_t whence) {
    const auto size = static_cast<int64_t>(bytes.size());
    int64_t target = position;
    if (whence == SEEK_SET) target = offset;
    if (whence == SEEK_CUR) target = position + offset;
    if (whence == SEEK_END) target = size + offset;
    const bool known = whence == SEEK_SET || whence == SEEK_CUR || whence == SEEK_END;
    if (kind == kView) {
      position = std::clamp(target, int64_t{0}, size);
    } else {
      if (!known || target < 0) return -1;
      position = target;
    }
    return position;
  }

 private:
  size_t left() const {
    const auto at = static_cast<size_t>(position);
    return at < bytes.size() ? bytes.size() - at : 0;
  }
  size_t take_position() { return static_cast<size_t>(position++); }

  int32_t read_at(std::string& buffer, size_t at, int32_t n) {
    if (n < 1) return 0;
    if (nread >= limit) {
      eof = 1;
      return 0;
    }
    if (nread + static_cast<uint32_t>(n) > limit) {
      n = static_cast<int32_t>(limit - nread);
    }
    const int32_t count = read_slot(buffer, at, n);
    if (count > 0) nread += static_cast<uint32_t>(count);
    return count;
  }

  // The next byte of a line that is read byte by byte.
  int32_t character() {
    if (nread >= limit) {
      eof = 1;
      return -1;
    }
    if (!has_fgetc) return fgetc();
    ++nread;
    return fgetc_slot();
  }

  void skip_without_limit(int64_t n) {
    const uint32_t kept = limit;
    limit = 0x7fffffff;
    skip(n);
    limit = kept;
  }

  bool line_until(char end, std::string& buffer, int32_t n) {
    size_t count = std::min(static_cast<size_t>(n - 1), left());
    const size_t found = bytes.find(end, static_cast<size_t>(position));
    if (found != bytes.npos) {
      count = std::min(count, found + 1 - static_cast<size_t>(position));
    }
    buffer.replace(0, count, bytes, static_cast<size_t>(position), count);
    buffer[count] = '\0';
    position += static_cast<int64_t>(count);
    return true;
  }

  // Byte by byte. Where the file ends within a line the terminator goes one byte too far,
  // and the gap keeps what the buffer held before.
  bool file_gets(std::string& buffer, int32_t n) {
    if (n < 2) {
      buffer[0] = '\0';
      return true;
    }
    size_t i = 0;
    while (i < static_cast<size_t>(n - 1)) {
      if (left() == 0) {
        if (i == 0) return false;
        buffer[i + 1] = '\0';
        return true;
      }
      buffer[i] = bytes[take_position()];
      ++i;
      if (buffer[i - 1] == '\n' || buffer[i - 1] == '\r') break;
    }
    buffer[i] = '\0';
    return true;
  }

  int reads_ = 0;
  bool was_interrupted_ = false;
};

}  // namespace fuzz

#endif
