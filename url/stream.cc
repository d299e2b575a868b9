// Core of the stream layer: the list of scheme modules, and the generic operations, which
// call the slots of a stream's record and limit and count what is read. When `nread`,
// `eof`, `url_errno` and `errno` change, and in which order, is part of the interface.
//
// SPDX-License-Identifier: MIT

#include <groundwork/url.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "url/file_lines.h"
#include "url/record_layout.h"

extern "C" {

int32_t url_errno = 0;
int32_t url_newline_code = '\n';
const char* url_lib_version = "1.9.5";
int32_t uudecode_unquote_html = 0;
char* user_mailaddr = nullptr;

}  // extern "C"

namespace {

constexpr int32_t kNoByte = -1;
constexpr size_t kScratchSize = 8192;  // visible to modules: url_skip() reads this much

// The module added last; the list only grows.
URL_module* url_module_list = nullptr;

// Marks the `init` slot of an initialised module.
int32_t url_module_ready() {
  return 1;
}

void clear_error() {
  url_errno = URLERR_NONE;
  errno = 0;
}

bool accepts(const URL_module& module, const char* url) {
  return module.type != 0 && module.name_check != nullptr && module.name_check(url) != 0;
}

// The module for a URL, or null.
URL_module* find_module(const char* url) {
  URL_module* module = url_module_list;
  while (module != nullptr && !accepts(*module, url)) module = module->next;
  return module;
}

bool at_limit(const URL_record& stream) {
  return stream.nread >= stream.readlimit;
}

// The bytes left until the limit; valid only if not at_limit().
uint32_t budget(const URL_record& stream) {
  return stream.readlimit - stream.nread;
}

// Returns whether `n` more bytes would exceed the limit. The sum wraps at 32 bits,
// unsigned: large files have limits of 2 GiB and more.
bool exceeds_limit(const URL_record& stream, int32_t n) {
  return stream.nread + static_cast<uint32_t>(n) > stream.readlimit;
}

// Reads the next byte of a line. Unlike url_fgetc() it sets `eof` at the limit, and does
// not clear `url_errno` when the module reads single bytes.
int32_t next_byte_of_line(URL url) {
  if (at_limit(*url)) {
    url->eof = 1;
    return kNoByte;
  }
  if (url->fgetc == nullptr) return url_fgetc(url);
  ++url->nread;
  return url->fgetc(url);
}

// The address of the thread's `errno`; null until url_fgetc() has looked it up. That clears
// errno for every byte, and each look-up costs as much as the byte itself. musl refuses to
// dlopen() a library that uses this TLS model.
#ifdef __GLIBC__
[[gnu::tls_model("initial-exec")]]
#endif
constinit thread_local int* address_of_errno = nullptr;

// The rest of url_fgetc() for a thread's first byte, and for a module without an `fgetc`
// slot. Out of line, so that for all other bytes only the module is called.
[[gnu::noinline]] int32_t count_and_read_byte(URL url) {
  ++url->nread;
  if (url->fgetc != nullptr) {
    address_of_errno = &errno;
    clear_error();
    return url->fgetc(url);
  }
  // Kept: url_read() counts the byte a second time, and rejects the last before the limit.
  unsigned char byte;
  return url_read(url, &byte, 1) < 1 ? kNoByte : byte;
}

bool ends_line(int32_t byte) {
  return byte == '\r' || byte == '\n';
}

int64_t refuse_to_seek() {
  errno = EPERM;
  url_errno = EPERM;
  return -1;
}

// A negative size stands for 2 GiB or more, which no 32-bit heap can allocate. It fails
// here, so that 64-bit heaps and checking allocators behave the same.
void* allocated(int32_t size) {
  if (size >= 0) return std::malloc(static_cast<size_t>(size));
  errno = ENOMEM;
  return nullptr;
}

// Moves a stream that cannot seek forwards from `position`. Kept: returns the position
// before the move, which callers rely on.
int64_t skip_unlimited(URL url, int64_t n, int64_t position) {
  const uint32_t limit = std::exchange(url->readlimit, URL_NO_READLIMIT);
  url_skip(url, n);
  url->readlimit = limit;
  return position;
}

int64_t seek_by_reading(URL url, int64_t offset, int32_t whence) {
  if (whence == SEEK_CUR && offset >= 0) {
    const int64_t position = url_tell(url);
    return offset == 0 ? position : skip_unlimited(url, offset, position);
  }
  if (whence == SEEK_SET) {
    const int64_t position = url_tell(url);
    if (position == -1 || offset < position) return refuse_to_seek();
    return offset == position ? position : skip_unlimited(url, offset - position, position);
  }
  return refuse_to_seek();
}

}  // namespace

extern "C" void url_add_module(URL_module* m) {
  m->next = url_module_list;
  url_module_list = m;
}

extern "C" void url_add_modules(URL_module* first, ...) {
  va_list more;
  va_start(more, first);
  for (URL_module* m = first; m != nullptr; m = va_arg(more, URL_module*)) {
    url_add_module(m);
  }
  va_end(more);
}

extern "C" int32_t url_check_type(const char* url) {
  const URL_module* const module = find_module(url);
  return module != nullptr ? module->type : -1;
}

extern "C" URL url_open(const char* url) {
  URL_module* const module = find_module(url);
  if (module == nullptr) {
    url_errno = URLERR_UNKNOWN_URL;
    errno = ENOENT;
    return nullptr;
  }
  if (module->init != url_module_ready) {
    // After a failure the slot is unchanged, so that the next open tries again.
    if (module->init != nullptr && module->init() < 0) return nullptr;
    module->init = url_module_ready;
  }
  clear_error();
  return module->open(url);
}

extern "C" int32_t url_read(URL url, void* buf, int32_t n) {
  if (n < 1 || url == nullptr || buf == nullptr) return 0;
  clear_error();
  if (at_limit(*url)) {
    url->eof = 1;
    return 0;
  }
  if (exceeds_limit(*url, n)) n = static_cast<int32_t>(budget(*url));
  const int32_t count = url->read(url, buf, n);
  if (count > 0) url->nread += static_cast<uint32_t>(count);
  return count;
}

extern "C" int32_t url_safe_read(URL url, void* buf, int32_t n) {
  if (n < 1) return 0;
  int32_t count;
  do {
    errno = 0;
    count = url_read(url, buf, n);
  } while (count == -1 && errno == EINTR);
  return count;
}

extern "C" int32_t url_nread(URL url, void* buf, int32_t n) {
  int32_t total = 0;
  do {
    const int32_t count = url_safe_read(url, static_cast<char*>(buf) + total, n - total);
    if (count <= 0) return total > 0 ? total : count;
    total += count;
  } while (total < n);
  return total;
}

extern "C" char* url_gets(URL url, char* buf, int32_t n) {
  if (at_limit(*url)) return nullptr;  // does not set `eof`, unlike url_read()
  if (url->gets != nullptr) {
    clear_error();
    // One more than the limit leaves, for the NUL. A negative size is never increased.
    if (n > 0 && exceeds_limit(*url, n)) n = static_cast<int32_t>(budget(*url) + 1);
    if (url->gets == groundwork::file_gets) {
      const int32_t length = groundwork::gets_from_file(url, buf, n);
      if (length == groundwork::kNoLine) return nullptr;
      url->nread += length != groundwork::kUncounted
                        ? static_cast<uint32_t>(length)
                        : static_cast<uint32_t>(std::strlen(buf));
      return buf;
    }
    char* const line = url->gets(url, buf, n);
    if (line != nullptr) url->nread += static_cast<uint32_t>(std::strlen(line));
    return line;
  }
  if (n == 1) buf[0] = '\0';
  if (n < 2) return buf;
  int32_t length = 0;
  while (length < n - 1) {
    const int32_t byte = next_byte_of_line(url);
    if (byte == kNoByte) break;
    buf[length++] = static_cast<char>(byte);
    if (byte == url_newline_code) break;
  }
  if (length == 0) return nullptr;
  buf[length] = '\0';
  return buf;
}

extern "C" int32_t url_readline(URL url, char* buf, int32_t n) {
  if (n == 1) buf[0] = '\0';
  if (n < 2) return 0;
  if (groundwork::is_read_in_pieces(url)) {
    return groundwork::read_line_in_pieces(url, buf, n);
  }
  for (;;) {
    int32_t length = 0;
    int32_t byte = kNoByte;
    while (length < n - 1) {
      byte = next_byte_of_line(url);
      if (byte == kNoByte) break;
      buf[length++] = static_cast<char>(byte);
      if (ends_line(byte)) break;
    }
    if (length == 0) return 0;
    // Skips empty lines, so that the "\n" of "\r\n" does not end another line.
    if (length == 1 && ends_line(byte)) continue;
    if (ends_line(byte)) --length;
    buf[length] = '\0';
    return length;
  }
}

extern "C" int32_t url_fgetc(URL url) {
  if (at_limit(*url)) return kNoByte;  // does not set `eof`
  int* const thread_errno = address_of_errno;
  if (thread_errno == nullptr || url->fgetc == nullptr) return count_and_read_byte(url);
  ++url->nread;
  url_errno = URLERR_NONE;
  *thread_errno = 0;
  return url->fgetc(url);
}

extern "C" int64_t url_seek(URL url, int64_t offset, int32_t whence) {
  if (url->seek == nullptr) return seek_by_reading(url, offset, whence);
  clear_error();
  url->nread = 0;
  return url->seek(url, offset, whence);
}

extern "C" int64_t url_tell(URL url) {
  clear_error();
  return url->tell != nullptr ? url->tell(url) : int64_t{url->nread};
}

extern "C" void url_skip(URL url, int64_t n) {
  if (url->seek != nullptr) {
    if (at_limit(*url)) return;
    n = std::min(n, int64_t{budget(*url)});
    if (url->seek(url, n, SEEK_CUR) != -1) {
      url->nread += static_cast<uint32_t>(n);
      return;
    }
  }
  std::array<char, kScratchSize> scratch;
  while (n > 0) {
    const auto chunk = static_cast<int32_t>(std::min(n, int64_t{kScratchSize}));
    const int32_t count = url_read(url, scratch.data(), chunk);
    if (count <= 0) return;
    n -= count;
  }
}

extern "C" void url_rewind(URL url) {
  // Kept: a stream that can seek goes back but keeps its count; another stays where it is
  // but counts from 0 again.
  if (url->seek != nullptr) {
    url->seek(url, 0, SEEK_SET);
  } else {
    url->nread = 0;
  }
}

extern "C" void url_set_readlimit(URL url, int32_t limit) {
  url->readlimit = limit < 0 ? uint32_t{URL_NO_READLIMIT} : static_cast<uint32_t>(limit);
  url->nread = 0;
}

extern "C" URL alloc_url(int32_t size) {
  constexpr int32_t kSmallest = sizeof(URL_record);
  if (size >= 0) size = std::max(size, kSmallest);
  const URL url = static_cast<URL>(allocated(size));
  if (url == nullptr) [[unlikely]] {
    url_errno = errno;
    return nullptr;
  }
  *url = URL_record{};
  url->readlimit = URL_NO_READLIMIT;
  std::memset(url + 1, 0, static_cast<size_t>(size - kSmallest));
  return url;
}

extern "C" void url_close(URL url) {
  const int saved_errno = errno;
  if (url == nullptr) {
    std::fputs("URL stream structure is NULL?\n", stderr);
  } else if (url->close == nullptr) {
    std::fprintf(stderr, "URL Error: Already URL is closed (type=%d)\n", int{url->type});
  } else {
    url->close(url);
  }
  errno = saved_errno;
}

extern "C" const char* url_strerror(int32_t code) {
  if (code <= URLERR_NONE) return std::strerror(code);
  switch (code) {
    case URLERR_UNKNOWN_URL:
      return "Unknown URL";
    case URLERR_NOT_PERMITTED:
      return "Operation not permitted";
    case URLERR_CANT_OPEN:
      return "Can't open a URL";
    case URLERR_INVALID_FORM:
      return "Invalid URL form";
    case URLERR_TOO_LONG:
      return "URL too long";
    case URLERR_NO_MAIL_ADDRESS:
      return "No mail address";
    default:
      return "Internal error";  // Kept: "not found" has no text of its own.
  }
}

extern "C" void* url_dump(URL url, int32_t size, int32_t* len_out) {
  if (len_out != nullptr) *len_out = 0;
  if (size == 0) return nullptr;
  // Kept: a negative size does not mean "to the end".
  void* const buf = allocated(size);
  if (buf == nullptr) return nullptr;
  const int32_t count = url_nread(url, buf, size);
  if (len_out != nullptr) *len_out = count;
  if (count != 0) return buf;  // even -1, a failed first read: told by the length alone
  std::free(buf);
  return nullptr;
}
