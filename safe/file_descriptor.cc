// SPDX-License-Identifier: MIT

#include "safe/file_descriptor.h"

int groundwork::get_status(int descriptor, struct stat* status) {
  return uninterrupted([=] { return fstat(descriptor, status); });
}

void groundwork::Descriptor::reset(int number) {
  const int old = std::exchange(number_, number);
  if (old == -1) return;
  const int saved_errno = errno;
  close(old);
  errno = saved_errno;
}

groundwork::Descriptor groundwork::open_at(int directory, const char* path, int flags,
                                           mode_t mode, bool* is_open) {
  Descriptor file(
      uninterrupted([=] { return openat(directory, path, flags | O_CLOEXEC, mode); }));
  if (is_open != nullptr) *is_open = file.is_open();
  if (file.is_open() && file.get() <= STDERR_FILENO) {
    const int low = file.get();
    file.reset(
        uninterrupted([=] { return fcntl(low, F_DUPFD_CLOEXEC, STDERR_FILENO + 1); }));
  }
  return file;
}
