// Argument checks: a failed one logs a line and returns the failure value.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CORE_CHECK_H
#define GROUNDWORK_CORE_CHECK_H

#include <groundwork/log.h>

namespace groundwork {

// Reports a failed argument check; returns the result of g_log(). Out of line and cold, so
// that a check costs its caller a comparison and a jump.
[[gnu::cold]] int report_failed_check(const char* source, int line, const char* expression);

}  // namespace groundwork

// Logs a failed argument check and returns the failure value (none for void). The text is
// `expr` as written: through another macro layer NULL would expand first. Expects a
// constant `kSource`, the module's name in log lines.
#define CHECK_ARG(expr, ...)                                       \
  do {                                                             \
    if (!(expr)) [[unlikely]] {                                    \
      ::groundwork::report_failed_check(kSource, __LINE__, #expr); \
      return __VA_ARGS__;                                          \
    }                                                              \
  } while (0)

#endif
