// SPDX-License-Identifier: MIT

#include "safe/failure.h"

#include <cerrno>

int groundwork::fail(int error) {
  errno = error;
  return -1;
}
