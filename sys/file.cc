// File handles, whole-file locks, and whole files in one call. Thin over the system calls:
// no retries and no buffering.
//
// The calls may block, and a thread can be cancelled in a blocking call. Destructors do not
// run then, so a cleanup handler releases what is open or allocated at such a point.
//
// SPDX-License-Identifier: MIT

#include <groundwork/file.h>
#include <groundwork/str.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/cancellation.h"
#include "core/check.h"
#include "core/owned.h"
#include "sys/descriptors.h"
#include "sys/file_handle.h"

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_file";
constexpr mode_t kPermissions = 0644;

// Only the low 32 bits of a length are passed to the system, on every platform.
size_t low_32_bits(int64_t length) {
  return static_cast<uint32_t>(length);
}

// malloc() with a report of failure.
void* allocate(size_t size, int line) {
  void* const block = std::malloc(size);
  if (block == nullptr) [[unlikely]] {
    g_log(G_LOG_WARNING, kSource, line, "failed to allocate %u bytes.",
          static_cast<unsigned>(size));
  }
  return block;
}

int open_descriptor(const char* filename, int mode) {
  switch (mode) {
    case 1:
      return open(filename, O_WRONLY | O_CLOEXEC, kPermissions);
    case 2:
      return open(filename, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kPermissions);
    default:
      return open(filename, O_RDONLY | O_CLOEXEC);
  }
}

// Opens the file of a handle, without a report. Returns true on success.
bool open_handle(GFile& file, const char* filename, int mode) {
  file.descriptor = above_output(open_descriptor(filename, mode));
  if (file.descriptor == -1) return false;
  if (mode == 1) lseek(file.descriptor, 0, SEEK_SET);
  return true;
}

void report_failed_open(const char* filename, int error) {
  g_log(G_LOG_WARNING, kSource, __LINE__, "can't open file '%s' - %s", filename,
        std::strerror(error));
}

// Locks the whole file, without waiting for a conflicting lock.
int set_lock(const GFile& file, short type) {
  struct flock lock = {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return fcntl(file.descriptor, F_SETLK, &lock);
}

// Returns the content of an open file, terminated by a NUL; null on failure.
char* read_content(GFile* file, const char* filename, int64_t size) {
  Owned<char> buf(static_cast<char*>(allocate(low_32_bits(size) + 1, __LINE__)));
  if (buf == nullptr) return nullptr;
  int64_t count = 0;
  with_cleanup(free_block, buf.get(), [&] { count = g_file_read(file, buf.get(), size); });
  if (count != size) {
    buf.reset();  // the output handler may end the thread
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't read file '%s'.", filename);
    return nullptr;
  }
  buf.get()[size] = '\0';
  return buf.release();
}

}  // namespace

bool groundwork::open_file(GFile& file, const char* filename, int mode) {
  if (open_handle(file, filename, mode)) return true;
  report_failed_open(filename, errno);
  return false;
}

void groundwork::close_file(void* file) {
  const int descriptor = static_cast<const GFile*>(file)->descriptor;
  const CancellationHeld held;  // a thread that is cancelled before it closes never does
  if (descriptor != -1) close(descriptor);
}

extern "C" GFile* g_file_open(const char* filename, int mode) {
  CHECK_ARG(filename != NULL, nullptr);
  Owned<GFile> file(static_cast<GFile*>(allocate(sizeof(GFile), __LINE__)));
  if (file == nullptr) return nullptr;
  bool is_open = false;
  with_cleanup(free_block, file.get(),
               [&] { is_open = open_handle(*file.get(), filename, mode); });
  if (!is_open) {
    const int error = errno;
    file.reset();  // the output handler may end the thread
    report_failed_open(filename, error);
    return nullptr;
  }
  return file.release();
}

extern "C" void g_file_close(GFile* file) {
  CHECK_ARG(file != NULL);
  close_file(file);
  std::free(file);
}

extern "C" int64_t g_file_read(GFile* file, void* buf, int64_t len) {
  CHECK_ARG(file != NULL, -1);
  CHECK_ARG(buf != NULL, -1);
  return read(file->descriptor, buf, low_32_bits(len));
}

extern "C" int64_t g_file_write(GFile* file, const void* buf, int64_t len) {
  CHECK_ARG(file != NULL, -1);
  CHECK_ARG(buf != NULL, -1);
  const ssize_t count = write(file->descriptor, buf, low_32_bits(len));
  if (count == -1) {
    const int error = errno;
    g_log(G_LOG_WARNING, kSource, __LINE__, "%s - %d.", std::strerror(error), error);
    errno = error;  // the log's handler may have changed it
  }
  return count;
}

extern "C" int64_t g_file_seek(GFile* file, int64_t offset, int whence) {
  CHECK_ARG(file != NULL, -1);
  return lseek(file->descriptor, offset, whence);
}

extern "C" int g_file_truncate(GFile* file) {
  CHECK_ARG(file != NULL, -1);
  return ftruncate(file->descriptor, lseek(file->descriptor, 0, SEEK_CUR));
}

extern "C" int64_t g_file_size(const char* filename) {
  CHECK_ARG(filename != NULL, -1);
  struct stat status;
  return stat(filename, &status) == 0 ? status.st_size : -1;
}

extern "C" int g_file_exist(const char* filename) {
  CHECK_ARG(filename != NULL, 0);
  struct stat status;
  return stat(filename, &status) == 0 && S_ISREG(status.st_mode);
}

extern "C" char* g_file_exist_path(const char* dir, const char* filename) {
  CHECK_ARG(filename != NULL, nullptr);
  const bool joins = dir != nullptr && filename[0] != '/';
  Owned<char> path(joins ? g_strdup_printf("%s%s%s", dir, "/", filename)
                         : g_strdup(filename));
  if (path == nullptr) return nullptr;
  return g_file_exist(path.get()) ? path.release() : nullptr;
}

extern "C" char* g_file_read_buf(const char* filename, int64_t* len) {
  CHECK_ARG(filename != NULL, nullptr);
  CHECK_ARG(len != NULL, nullptr);
  const int64_t size = g_file_size(filename);
  if (size < 0 || size > INT32_MAX) return nullptr;  // callers expect no message here
  GFile file;
  if (!open_file(file, filename, 0)) return nullptr;
  char* buf = nullptr;
  with_cleanup(close_file, &file, [&] { buf = read_content(&file, filename, size); });
  close_file(&file);
  if (buf != nullptr) *len = size;
  return buf;
}

// Kept: the file is neither created nor truncated, so a shorter buffer leaves the old tail
// in place.
extern "C" int g_file_write_buf(const char* filename, const void* buf, int64_t len) {
  CHECK_ARG(filename != NULL, -1);
  CHECK_ARG(buf != NULL, -1);
  CHECK_ARG(len > 0, -1);
  GFile file;
  if (!open_file(file, filename, 1)) return -1;
  int64_t count = 0;
  with_cleanup(close_file, &file, [&] {
    count = g_file_write(&file, buf, len);
    if (count != len) {
      g_log(G_LOG_WARNING, kSource, __LINE__, "failed to write file '%s'.", filename);
    }
  });
  close_file(&file);
  return count == len ? 0 : -1;
}

extern "C" int g_file_lock_read(GFile* file) {
  CHECK_ARG(file != NULL, -1);
  return set_lock(*file, F_RDLCK);
}

extern "C" int g_file_lock_write(GFile* file) {
  CHECK_ARG(file != NULL, -1);
  return set_lock(*file, F_WRLCK);
}

extern "C" int g_file_unlock(GFile* file) {
  CHECK_ARG(file != NULL, -1);
  return set_lock(*file, F_UNLCK);
}
