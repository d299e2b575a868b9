// Owner of a file descriptor; keeping descriptors above standard output.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_URL_UNIQUE_FD_H
#define GROUNDWORK_URL_UNIQUE_FD_H

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace groundwork {

// Closes a descriptor, and preserves errno. Holds off cancellation: a thread that is
// cancelled before it closes never does.
void close_descriptor(int fd);

// Closes its descriptor at the end of the scope, and preserves errno, which may report why;
// release() hands over ownership.
class UniqueFd {
 public:
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd() {
    if (fd_ != -1) close_descriptor(fd_);
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

// Returns a descriptor from open() or socket(), moved above standard output and standard
// error: a program that closed these would print into the file or to the peer. Descriptor 0
// is not moved, since it may well be a stream's. -1 with errno set on failure.
inline int kept_above_output(int fd) {
  if (fd != STDOUT_FILENO && fd != STDERR_FILENO) return fd;
  const UniqueFd low(fd);
  return fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
}

}  // namespace groundwork

#endif
