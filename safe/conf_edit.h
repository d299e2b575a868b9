// Changing the text of a configuration file so that it reads as a model, and nothing else
// of it. No file is touched here.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_SAFE_CONF_EDIT_H
#define GROUNDWORK_SAFE_CONF_EDIT_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "safe/conf_array.h"
#include "safe/conf_keys.h"

namespace groundwork {

// A text of less than 2 GiB.
class ConfText {
 public:
  // False when memory is exhausted, or the text would get too long.
  bool add(std::string_view text) {
    if (text.size() > INT32_MAX - bytes_.size()) {
      is_too_long_ = true;
      return false;
    }
    return bytes_.add(text.data(), text.size());
  }
  bool reserve(size_t more) { return bytes_.reserve(more); }
  void remove_suffix(size_t size) { bytes_.cut(bytes_.size() - size); }

  // Never null.
  std::string_view view() const {
    return bytes_.data() != nullptr ? std::string_view(bytes_.data(), bytes_.size()) : "";
  }
  bool is_too_long() const { return is_too_long_; }

 private:
  Array<char> bytes_;
  bool is_too_long_ = false;
};

// Appends to `out`, which is empty, the text that `old_text` (without a NUL) becomes so
// that it reads as the model. 0, or ENOMEM, or EFBIG for 2 GiB and more.
int edit_conf_text(std::string_view old_text, const ConfKeys& model, ConfText& out);

// Whether loading the text would give the keys and values of the model, in whatever order.
// 0, EINVAL or ENOMEM.
int check_conf_text(std::string_view text, const ConfKeys& model);

}  // namespace groundwork

#endif
