// SPDX-License-Identifier: MIT

#include "safe/conf_file.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "safe/file_descriptor.h"

namespace groundwork {
namespace {

// A program that writes the file in place locks it, so half a file is not read. Closing the
// descriptor unlocks.
int lock_shared(int descriptor) {
  struct flock lock {};
  lock.l_type = F_RDLCK;
  lock.l_whence = SEEK_SET;
  if (uninterrupted([&] { return fcntl(descriptor, F_SETLK, &lock); }) != -1) return 0;
  return errno == EACCES ? EAGAIN : errno;
}

// Reads `size` bytes, fewer at the end of the file; -1 on error.
ssize_t read_up_to(int descriptor, char* buffer, size_t size) {
  size_t count = 0;
  while (count < size) {
    const ssize_t more =
        uninterrupted([=] { return read(descriptor, buffer + count, size - count); });
    if (more == -1) return -1;
    if (more == 0) break;
    count += static_cast<size_t>(more);
  }
  return static_cast<ssize_t>(count);
}

}  // namespace

int ConfFile::read(int directory, const char* path) {
  // O_NONBLOCK: opening a pipe must not wait for a writer.
  const Descriptor file = open_at(directory, path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (!file.is_open()) return errno;
  struct stat status;
  if (get_status(file.get(), &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return ENOENT;
  if (const int error = lock_shared(file.get()); error != 0) return error;
  // Once more: until it was locked, it may have been written.
  if (get_status(file.get(), &status) != 0) return errno;
  if (status.st_size > INT32_MAX) return EFBIG;
  const auto size = static_cast<size_t>(status.st_size);
  // One more byte, to notice a file that grows.
  Owned<char> bytes(static_cast<char*>(std::malloc(size + 1)));
  if (bytes == nullptr) return ENOMEM;
  const ssize_t count = read_up_to(file.get(), bytes.get(), size + 1);
  if (count == -1) return errno;
  if (static_cast<size_t>(count) != size) return EAGAIN;
  bytes_ = static_cast<Owned<char>&&>(bytes);
  size_ = size;
  return 0;
}

}  // namespace groundwork
