// Compares a text with one that is no longer there.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_FINGERPRINT_H
#define GROUNDWORK_CONF_FINGERPRINT_H

#include <cstddef>
#include <cstdint>

namespace groundwork {

// The size of a text and 128 bits of hash. Two different texts have the same fingerprint
// with a probability of at most 2^-64, unless somebody constructs them.
struct Fingerprint {
  size_t size;
  uint32_t hash[4];

  bool operator==(const Fingerprint&) const = default;
};

// `text` may be null when `size` is 0.
Fingerprint fingerprint_of(const char* text, size_t size);

// What a conf knows about the content of its file.
struct FileContent {
  enum State {
    kUnknown,  // a write failed halfway, or the conf is no longer the library's own
    kNoFile,   // there was no file when the conf was opened
    kText,     // the text with this fingerprint was loaded or written
  };
  State state = kUnknown;
  Fingerprint text = {};
};

}  // namespace groundwork

#endif
