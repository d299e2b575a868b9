// A file replaced as a whole.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "core/cancellation.h"
#include "core/check.h"
#include "safe/file_replacement.h"

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_file";

}  // namespace

extern "C" int g_file_replace(const char* path, const void* buf, int64_t len) {
  CHECK_ARG(path != NULL, (errno = EINVAL, -1));
  CHECK_ARG(len >= 0, (errno = EINVAL, -1));
  CHECK_ARG((buf != NULL) || (len == 0), (errno = EINVAL, -1));
  const CancellationHeld held;
  const auto size = static_cast<size_t>(len);
  if (static_cast<int64_t>(size) != len) {  // more than the memory of a 32-bit process
    errno = EFAULT;
    return -1;
  }
  Replacement replacement;
  if (!replacement.find(path) || !replacement.create() || !replacement.write(buf, size)) {
    return -1;
  }
  return replacement.commit();
}
