// Tells whether two texts are the same after the first is gone.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CONF_FINGERPRINT_H
#define GROUNDWORK_CONF_FINGERPRINT_H

#include <cstddef>
#include <cstdint>

namespace groundwork {

// The size of a text and 128 bits of hash. Two texts that differ have the same one with a
// probability of 2^-64 or less, unless somebody constructs them.
struct Fingerprint {
  size_t size;
  uint32_t hash[4];

  bool operator==(const Fingerprint&) const = default;
};

// `text` may be null when `size` is 0.
Fingerprint fingerprint_of(const char* text, size_t size);

// What a conf knows of the content of its file.
struct FileContent {
  enum State {
    kUnknown,  // a write failed half way, or the conf is not the library's own any more
    kNoFile,   // there was none when the conf was opened
    kText,     // the text of that fingerprint was loaded or written
  };
  State state = kUnknown;
  Fingerprint text = {};
};

}  // namespace groundwork

#endif
