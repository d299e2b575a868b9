// Runs operations of the input on a stream and on its model.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_FUZZ_URL_STREAM_OPERATIONS_H
#define GROUNDWORK_FUZZ_URL_STREAM_OPERATIONS_H

#include <groundwork/url.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz/support/buffer.h"
#include "fuzz/support/check.h"
#include "fuzz/support/input.h"
#include "fuzz/url/stream_model.h"

namespace fuzz {

inline void compare_state(URL url, const StreamModel& model) {
  REQUIRE_EQUAL(url->nread, model.nread);
  REQUIRE_EQUAL(url->readlimit, model.limit);
  REQUIRE_EQUAL(url->eof, model.eof);
}

inline void dump_both(URL url, StreamModel& model, int32_t n) {
  std::string expected(static_cast<size_t>(n), '\0');
  const int32_t count = n == 0 ? 0 : model.read_all(expected, n);
  int32_t length = 12345;
  void* const content = url_dump(url, n, &length);
  REQUIRE_EQUAL(length, count);
  REQUIRE_EQUAL(content != nullptr, count != 0);
  if (count > 0) {
    REQUIRE_EQUAL(std::string(static_cast<char*>(content), static_cast<size_t>(count)),
                  expected.substr(0, static_cast<size_t>(count)));
  }
  std::free(content);
}

// The reads. Every byte of the buffer is compared, including those after the bytes read.
inline void read_both(URL url, StreamModel& model, unsigned operation, int32_t n) {
  Buffer buffer(static_cast<size_t>(n));
  std::string expected(static_cast<size_t>(n), kUntouched);
  switch (operation) {
    case 0:
      REQUIRE_EQUAL(url_read(url, buffer.data(), n), model.read(expected, n));
      break;
    case 1:
      REQUIRE_EQUAL(url_safe_read(url, buffer.data(), n), model.safe_read(expected, 0, n));
      break;
    case 2:
      REQUIRE_EQUAL(url_nread(url, buffer.data(), n), model.read_all(expected, n));
      break;
    case 3:
      if (n < 1) break;  // a mistake that is not caught
      REQUIRE_EQUAL(url_gets(url, buffer.data(), n),
                    model.gets(expected, n) ? buffer.data() : nullptr);
      break;
    default:
      REQUIRE_EQUAL(url_readline(url, buffer.data(), n), model.readline(expected, n));
      break;
  }
  REQUIRE_EQUAL(buffer.content(), expected);
}

inline void run_operation(Input& input, URL url, StreamModel& model) {
  const unsigned operation = input.byte();
  switch (operation % 13) {
    case 0:
    case 1:
    case 2:
    case 3:
    case 4:
      read_both(url, model, operation % 13,
                (operation & 0x80) != 0 ? input.word() : input.byte());
      break;
    case 5:
      REQUIRE_EQUAL(url_fgetc(url), model.fgetc());
      break;
    case 6: {
      const int64_t offset = static_cast<int16_t>(input.word());
      // No others: systems have more, such as the next hole.
      constexpr int32_t kWhences[] = {SEEK_SET, SEEK_CUR, SEEK_END, 77};
      const int32_t whence = kWhences[operation >> 6];
      const int64_t result = url_seek(url, offset, whence);
      REQUIRE_EQUAL(result, model.seek(offset, whence));
      if (model.refused) REQUIRE(errno == EPERM && url_errno == EPERM);
      break;
    }
    case 7:
      REQUIRE_EQUAL(url_tell(url), model.tell());
      break;
    case 8: {
      const int64_t n = static_cast<int16_t>(input.word());
      url_skip(url, n);
      model.skip(n);
      break;
    }
    case 9:
      url_rewind(url);
      model.rewind();
      break;
    case 10: {
      const int32_t limit =
          (operation & 0x80) != 0 ? input.int32() : static_cast<int16_t>(input.word());
      url_set_readlimit(url, limit);
      model.set_limit(limit);
      break;
    }
    case 11:
      dump_both(url, model, (operation & 0x80) != 0 ? input.word() : input.byte());
      break;
    default:
      model.newline = static_cast<char>(input.byte());
      url_newline_code = static_cast<unsigned char>(model.newline);
      break;
  }
  compare_state(url, model);
}

}  // namespace fuzz

#endif
