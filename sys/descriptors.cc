// SPDX-License-Identifier: MIT

#include "sys/descriptors.h"

#include <cerrno>

#include <fcntl.h>

#include "core/cancellation.h"

int groundwork::move_above_output(int fd) {
  const CancellationHeld held;  // cancelled in close(), it would leak the new descriptor
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(fd);
  errno = error;
  return moved;
}

DIR* groundwork::open_directory(const char* path) {
  DIR* const directory = opendir(path);
  if (directory == nullptr || !is_output(dirfd(directory))) return directory;
  DIR* const other = open_directory(path);  // the first still occupies the low number
  const int error = errno;
  closedir(directory);
  errno = error;
  return other;
}
