// A file replaced as a whole.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "core/cancellation.h"
#include "core/check.h"
#include "safe/failure.h"
#include "safe/file_replacement.h"

using namespace groundwork;

namespace {

constexpr char kSource[] = "g_file";

}  // namespace

extern "C" int g_file_replace(const char* path, const void* buf, int64_t len) {
  CHECK_ARG(path != NULL, fail(EINVAL));
  CHECK_ARG(len >= 0, fail(EINVAL));
  CHECK_ARG((buf != NULL) || (len == 0), fail(EINVAL));
  const CancellationHeld held;
  const auto size = static_cast<size_t>(len);
  // More than a 32-bit address space.
  if (static_cast<int64_t>(size) != len) return fail(EFAULT);
  Replacement replacement;
  if (!replacement.find(path) || !replacement.create() || !replacement.write(buf, size)) {
    return -1;
  }
  return replacement.commit();
}
