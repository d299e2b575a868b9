// A sleep that signals do not interrupt.
//
// SPDX-License-Identifier: MIT

#include <groundwork/timer.h>

#include <cerrno>

#include <sys/select.h>
#include <sys/time.h>

#include "core/cancellation.h"

extern "C" LEFT_BY_CANCELLATION void g_delay(int ms) {
  // select() updates it, so that an interrupted sleep continues with the remaining time.
  timeval left{};
  left.tv_sec = ms / 1000;
  left.tv_usec = ms % 1000 * 1000;
  int result;
  do {
    errno = 0;
    result = select(0, nullptr, nullptr, nullptr, &left);
  } while (result != 0 && errno == EINTR);
}
