// Records what a program does to the files of one directory, in terms of what a disk sees.
//
// The test program defines the system's functions itself, so those of the library come
// through here (see recorder.cc). That works for emulated programs, too.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_CRASH_RECORDER_H
#define GROUNDWORK_TESTS_CRASH_RECORDER_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace crash {

// Files are numbered from 0 in the order of their appearance.
constexpr int kNoFile = -1;

// One call that changes something, or has it brought to the disk.
struct Step {
  enum Kind {
    kWrite,         // `data` to `offset` of `file`
    kResize,        // `file` to `size`
    kAttributes,    // owner, mode or times of `file`: `data` says which and what
    kName,          // `name` becomes `file`, or kNoFile; `other` with it, for a rename
    kSync,          // all of `file`
    kSyncData,      // content and size of `file`
    kSyncDirectory  // the names
  };
  Kind kind;
  int file = kNoFile;
  size_t offset = 0;
  size_t size = 0;
  std::string data = {};
  std::string name = {};
  std::string other = {};  // the name that a rename takes away
};

struct File {
  std::string content;
  std::string attributes;  // those set by kAttributes, in their order
  bool operator==(const File&) const = default;
};

struct Recording {
  std::map<std::string, int> names;  // before
  std::vector<File> files;           // before; those made later begin empty
  std::vector<Step> steps;
};

// Runs `saver`, which works in `directory`, and returns its steps. All that is there before
// counts as on the disk. Fails the test when the steps do not explain what is there
// afterwards.
template <typename Saver>
Recording record(const std::string& directory, Saver saver);

void begin_recording(const std::string& directory);
Recording end_recording();
template <typename Saver>
Recording record(const std::string& directory, Saver saver) {
  begin_recording(directory);
  saver();
  return end_recording();
}

// Each write() moves at most so many bytes; 0 for no limit.
void limit_writes(size_t bytes);

// The calling process ends by SIGKILL before the `nth` call of the system from now on (1 is
// the next one), if it has so many. 0 takes it back.
void kill_at_call(int nth);
// The number of calls since then.
int calls_made();

}  // namespace crash

#endif
