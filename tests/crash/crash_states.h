// Every state that a power cut during a recording may leave on the disk.
//
// What was synced is there. Of the rest, these rules say what may be missing:
//
// - Posix: the weakest reading of the standard. Of each file any of the writes, changes of
//   size and attributes; of each write any part, cut at any byte, with or without the size
//   that it gives the file; and each name on its own, old, new or anything between.
// - Ext4, with ordered data, delayed allocation and without its heuristics for replaced
//   files (mount option noauto_da_alloc): names, sizes and attributes are those of some
//   earlier moment, since the journal keeps their order, and any sync brings all earlier
//   ones along. New blocks of a file that is not synced itself come late, in order, with
//   its size; blocks that were there before are written over at any time, in sectors.
// - Ubifs: names, attributes and truncations keep their order, too. Data are whole blocks
//   of 4 KiB, each there or not, and the size may be ahead of them, which leaves holes of
//   zeros.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_CRASH_CRASH_STATES_H
#define GROUNDWORK_TESTS_CRASH_CRASH_STATES_H

#include <cstdint>
#include <string>

#include "crash/recorder.h"

namespace crash {

enum class Rules { kPosix, kExt4, kUbifs };
constexpr Rules kAllRules[] = {Rules::kPosix, Rules::kExt4, Rules::kUbifs};
const char* name_of(Rules rules);

struct Promise {
  std::string target;        // the name that shows the old content or the new one
  bool ends_durable = true;  // after the last step, only the new one
  int most_temporaries = 1;  // names besides the target and what was there before
};

struct Figures {
  long states = 0;  // different ones
  long bad = 0;
  std::string example;  // of a bad one
};

Figures examine(const Recording& recording, const Promise& promise, Rules rules);

}  // namespace crash

#endif
