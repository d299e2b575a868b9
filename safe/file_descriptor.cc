// SPDX-License-Identifier: MIT

#include "safe/file_descriptor.h"

void groundwork::Descriptor::reset(int number) {
  const int former = std::exchange(number_, number);
  if (former == -1) return;
  const int kept = errno;
  close(former);
  errno = kept;
}

groundwork::Descriptor groundwork::open_at(int directory, const char* path, int flags,
                                           mode_t mode, bool* is_open) {
  Descriptor file(
      uninterrupted([=] { return openat(directory, path, flags | O_CLOEXEC, mode); }));
  if (is_open != nullptr) *is_open = file.is_open();
  if (file.is_open() && file.get() <= STDERR_FILENO) {
    file.reset(fcntl(file.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  }
  return file;
}
