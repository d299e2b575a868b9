// Null wide strings, for C libraries other than glibc.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_STR_NARROWED_FORMAT_H
#define GROUNDWORK_STR_NARROWED_FORMAT_H

#include <groundwork/str.h>

#include <cstddef>

#include "core/owned.h"

namespace groundwork {

// A format in which some conversions of wide strings, "%ls" or "%S", become "%s". musl's
// formatter writes "(null)" for a null pointer only with "%s"; otherwise it dereferences
// it.
class NarrowedFormat {
 public:
  explicit NarrowedFormat(const char* fmt) : fmt_(fmt) {}

  // Makes a conversion narrow. `end` is its last character in the format.
  void narrow(const char* end) {
    if (copy_ == nullptr) {
      copy_.reset(g_strdup(fmt_));
      is_exhausted_ = copy_ == nullptr;
      if (is_exhausted_) return;
    }
    const auto last = static_cast<size_t>(end - fmt_);
    copy_.get()[last] = 's';
    for (size_t i = last; fmt_[i - 1] == 'l'; --i) copy_.get()[i - 1] = kTakenOut;
  }

  // Returns the format to use, valid as long as this object; null when memory is exhausted.
  const char* get() {
    if (is_exhausted_) return nullptr;
    if (copy_ == nullptr) return fmt_;
    char* out = copy_.get();
    for (size_t i = 0; fmt_[i] != '\0'; ++i) {
      if (copy_.get()[i] != kTakenOut || fmt_[i] == kTakenOut) *out++ = copy_.get()[i];
    }
    *out = '\0';
    return copy_.get();
  }

 private:
  static constexpr char kTakenOut = '\1';

  const char* fmt_;
  Owned<char> copy_;
  bool is_exhausted_ = false;
};

}  // namespace groundwork

#endif
