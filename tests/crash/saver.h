// Savers under the eyes of the recorder.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_TESTS_CRASH_SAVER_H
#define GROUNDWORK_TESTS_CRASH_SAVER_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>

#include "crash/crash_states.h"
#include "crash/recorder.h"
#include "support/temporary_directory.h"

namespace crash {

// Of two blocks, no two bytes alike for long.
inline std::string text_of(const char* word, size_t size) {
  std::string text;
  for (int i = 0; text.size() < size; ++i) text += word + std::to_string(i) + "\n";
  text.resize(size);
  return text;
}
inline const std::string kOld = text_of("old", 5000);
inline const std::string kNew = text_of("new", 4700);

using Saver = std::function<void(const test::TemporaryDirectory&)>;

// A directory with the file "f", unless it is to be a fresh one, and a bystander.
struct Scene {
  std::string old_content = kOld;
  bool is_fresh = false;
  bool has_left_over = false;  // of an earlier power cut
  size_t write_limit = 0;
};

inline Recording recording_of(const Saver& saver, const Scene& scene = {}) {
  const test::TemporaryDirectory directory;
  directory.write("bystander", "here");
  if (!scene.is_fresh) directory.write("f", scene.old_content);
  if (scene.has_left_over) directory.write(".f.new", "left");
  limit_writes(scene.write_limit);
  Recording recording = record(directory.path(), [&] { saver(directory); });
  limit_writes(0);
  EXPECT_FALSE(recording.steps.empty());
  return recording;
}

inline Figures examine_and_print(const char* name, const Recording& recording,
                                 const Promise& promise, Rules rules) {
  const Figures figures = examine(recording, promise, rules);
  std::printf("%-40s %-6s %8ld states, %6ld bad\n", name, name_of(rules), figures.states,
              figures.bad);
  return figures;
}

inline Figures examine_all(const char* name, const Recording& recording,
                           const Promise& promise) {
  Figures all;
  for (const Rules rules : kAllRules) {
    const Figures figures = examine_and_print(name, recording, promise, rules);
    all.states += figures.states;
    all.bad += figures.bad;
    if (all.example.empty()) all.example = figures.example;
  }
  return all;
}

inline void expect_safe(const char* name, const Recording& recording) {
  const Promise promise = {.target = "f"};
  const Figures figures = examine_all(name, recording, promise);
  EXPECT_EQ(figures.bad, 0) << figures.example;
  EXPECT_GT(figures.states, 20);
}

}  // namespace crash

#endif
