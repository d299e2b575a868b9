// Owner of a file descriptor.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_URL_UNIQUE_FD_H
#define GROUNDWORK_URL_UNIQUE_FD_H

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace groundwork {

// Closes its descriptor at the end of the scope and leaves errno to the failure that led
// there; release() hands the descriptor on.
class UniqueFd {
 public:
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd() {
    if (fd_ == -1) return;
    const int kept = errno;
    close(fd_);
    errno = kept;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

}  // namespace groundwork

#endif
