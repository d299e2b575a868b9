// Descriptors of the safe layer: closed by their owner, and never a standard descriptor.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_FILE_DESCRIPTOR_H
#define GROUNDWORK_SAFE_FILE_DESCRIPTOR_H

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace groundwork {

// Repeats a system call while a signal interrupts it. Not for close(), which closes even
// so.
template <typename Call>
auto uninterrupted(Call call) {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

// fstat(), not given up when a signal interrupts it.
int get_status(int descriptor, struct stat* status);

// Owner of a descriptor, -1 for none. Closes it without changing errno.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor&& other) : number_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) {
    reset(other.release());
    return *this;
  }
  ~Descriptor() { reset(); }

  bool is_open() const { return number_ != -1; }
  int get() const { return number_; }
  int release() { return std::exchange(number_, -1); }
  void reset(int number = -1);

 private:
  int number_ = -1;
};

// Like openat(), but close-on-exec and above the standard descriptors: in a program that
// closed those, what it prints would go into the file. `is_open` is set if the file was
// opened or created, even if no other descriptor was left for it.
Descriptor open_at(int directory, const char* path, int flags, mode_t mode = 0,
                   bool* is_open = nullptr);

}  // namespace groundwork

#endif
