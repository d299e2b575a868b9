// A copy of a file that is complete or does not exist.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>

#include <cerrno>
#include <cstddef>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/cancellation.h"
#include "core/check.h"
#include "safe/failure.h"
#include "safe/file_descriptor.h"
#include "safe/file_replacement.h"

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_file";
constexpr size_t kBlock = 8192;
constexpr mode_t kSetIdBits = S_ISUID | S_ISGID;

bool is_regular(const struct stat& status) {
  if (S_ISREG(status.st_mode)) return true;
  errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  return false;
}

// Opens only a regular file: opening some devices has side effects, and opening a FIFO
// waits for a writer.
Descriptor open_regular(const char* path, struct stat* status) {
  if (uninterrupted([=] { return stat(path, status); }) != 0 || !is_regular(*status)) {
    return {};
  }
  Descriptor file = open_at(AT_FDCWD, path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (file.is_open() && (get_status(file.get(), status) != 0 || !is_regular(*status))) {
    file.reset();
  }
  return file;
}

bool copy_content(const Descriptor& from, Replacement& to) {
  char block[kBlock];
  for (;;) {
    const ssize_t count =
        uninterrupted([&] { return read(from.get(), block, sizeof block); });
    if (count <= 0) return count == 0;
    if (!to.write(block, static_cast<size_t>(count))) return false;
  }
}

}  // namespace

extern "C" int g_file_duplicate(const char* from, const char* to) {
  CHECK_ARG(from != NULL, fail(EINVAL));
  CHECK_ARG(to != NULL, fail(EINVAL));
  const CancellationHeld held;
  struct stat status;  // has the access time from before reading
  const Descriptor source = open_regular(from, &status);
  if (!source.is_open()) return -1;
  Replacement copy;
  if (!copy.find(to) || !copy.spares(status)) return -1;
  copy.set_mode(status.st_mode & ~kSetIdBits);
  if (!copy.create() || !copy_content(source, copy)) return -1;
  const timespec times[2] = {status.st_atim, status.st_mtim};
  return copy.commit(times);
}
