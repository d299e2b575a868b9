// The two error variables of the streams.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_URL_ERRORS_H
#define GROUNDWORK_TESTS_URL_ERRORS_H

#include <groundwork/url.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>

namespace test {

// What `url_errno` and `errno` hold before a call; neither is an error of the library's.
constexpr int32_t kOtherError = 4711;
constexpr int kOtherErrno = 42;

inline void set_errors() {
  url_errno = kOtherError;
  errno = kOtherErrno;
}

}  // namespace test

#define EXPECT_ERRORS(code, number) \
  do {                              \
    const int error_now = errno;    \
    EXPECT_EQ(error_now, (number)); \
    EXPECT_EQ(url_errno, (code));   \
  } while (0)

#define EXPECT_ERRORS_UNTOUCHED() EXPECT_ERRORS(test::kOtherError, test::kOtherErrno)

#endif
