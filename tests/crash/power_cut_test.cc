// Power cuts by simulation: each saver is recorded once, and every state that a crash may
// leave of it is rebuilt and looked at.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "crash/crash_states.h"
#include "crash/recorder.h"
#include "crash/saver.h"
#include "support/temporary_directory.h"

using namespace crash;
using test::TemporaryDirectory;

namespace {

// --- By hand.

class Descriptor {
 public:
  Descriptor(const std::string& path, int flags)
      : number_(open(path.c_str(), flags, 0644)) {
    EXPECT_NE(number_, -1) << path;
  }
  ~Descriptor() { close(number_); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  void write_all(const std::string& text) const {
    EXPECT_EQ(write(number_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  void sync() const { EXPECT_EQ(fsync(number_), 0); }

 private:
  const int number_;
};

void write_new(const std::string& path, bool is_synced) {
  const Descriptor file(path, O_WRONLY | O_CREAT | O_TRUNC);
  file.write_all(kNew);
  if (is_synced) file.sync();
}

void sync_directory(const TemporaryDirectory& directory) {
  Descriptor(directory.path(), O_RDONLY | O_DIRECTORY).sync();
}

void move(const TemporaryDirectory& directory, const char* from, const char* to) {
  EXPECT_EQ(rename((directory / from).c_str(), (directory / to).c_str()), 0);
}

// Savers that lose the file, and what is wrong with them.
const struct {
  const char* name;
  Saver saver;
} kBadSavers[] = {
    {"truncate and write", [](const TemporaryDirectory& d) { write_new(d / "f", true); }},
    {"write over, then cut",
     [](const TemporaryDirectory& d) {
       const int file = open((d / "f").c_str(), O_WRONLY);
       EXPECT_EQ(pwrite(file, kNew.data(), kNew.size(), 0),
                 static_cast<ssize_t>(kNew.size()));
       EXPECT_EQ(ftruncate(file, static_cast<off_t>(kNew.size())), 0);
       EXPECT_EQ(fsync(file), 0);
       close(file);
     }},
    {"rename without sync",
     [](const TemporaryDirectory& d) {
       write_new(d / ".f.new", false);
       move(d, ".f.new", "f");
       sync_directory(d);
     }},
    {"unlink, then rename",
     [](const TemporaryDirectory& d) {
       write_new(d / ".f.new", true);
       EXPECT_EQ(unlink((d / "f").c_str()), 0);
       move(d, ".f.new", "f");
       sync_directory(d);
     }},
    {"old file moved away first",
     [](const TemporaryDirectory& d) {
       write_new(d / ".f.new", true);
       move(d, "f", ".f.old");
       move(d, ".f.new", "f");
       EXPECT_EQ(unlink((d / ".f.old").c_str()), 0);
       sync_directory(d);
     }},
    {"directory not synced",
     [](const TemporaryDirectory& d) {
       write_new(d / ".f.new", true);
       move(d, ".f.new", "f");
     }},
    {"a part written after the sync",
     [](const TemporaryDirectory& d) {
       {
         const Descriptor file(d / ".f.new", O_WRONLY | O_CREAT);
         file.write_all(kNew.substr(0, 4000));
         file.sync();
         file.write_all(kNew.substr(4000));
       }
       move(d, ".f.new", "f");
       sync_directory(d);
     }},
    {"mode set after the rename",
     [](const TemporaryDirectory& d) {
       write_new(d / ".f.new", true);
       move(d, ".f.new", "f");
       const int file = open((d / "f").c_str(), O_RDONLY);
       EXPECT_EQ(fchmod(file, 0600), 0);
       close(file);
       sync_directory(d);
     }},
    {"two temporary files",
     [](const TemporaryDirectory& d) {
       write_new(d / ".f.1", true);
       write_new(d / ".f.2", true);
       move(d, ".f.2", "f");
       EXPECT_EQ(unlink((d / ".f.1").c_str()), 0);
       sync_directory(d);
     }},
};

// The least that a durable replacement must do.
void replace_by_hand(const TemporaryDirectory& directory) {
  write_new(directory / ".f.new", true);
  move(directory, ".f.new", "f");
  sync_directory(directory);
}

// --- Ours.

void replace(const TemporaryDirectory& directory) {
  EXPECT_EQ(g_file_replace((directory / "f").c_str(), kNew.data(),
                           static_cast<int64_t>(kNew.size())),
            0);
}

void duplicate(const TemporaryDirectory& directory) {
  const TemporaryDirectory other;
  const std::string from = other.write("from", kNew);
  const timespec times[2] = {{1'000'000'000, 0}, {1'100'000'000, 0}};
  EXPECT_EQ(utimensat(AT_FDCWD, from.c_str(), times, 0), 0);
  EXPECT_EQ(g_file_duplicate(from.c_str(), (directory / "f").c_str()), 0);
}

}  // namespace

// The examination itself: what it must find, and what it must not.
TEST(PowerCut, EachBadSaverIsCaught) {
  for (const auto& [name, saver] : kBadSavers) {
    const Recording recording = recording_of(saver);
    for (const Rules rules : kAllRules) {
      const Figures figures = examine_and_print(name, recording, {.target = "f"}, rules);
      EXPECT_GT(figures.bad, 0) << name << " was not caught";
      EXPECT_LT(figures.bad, figures.states) << name;
      std::printf("  e.g. %s\n", figures.example.c_str());
    }
  }
}

TEST(PowerCut, TheLeastDurableReplacementPasses) {
  expect_safe("write, fsync, rename, fsync", recording_of(replace_by_hand));
}

TEST(PowerCut, ReplacedFileIsOldOrNew) {
  expect_safe("g_file_replace", recording_of(replace));
}

TEST(PowerCut, ReplacedFileIsOldOrNewWrittenInPieces) {
  expect_safe("g_file_replace, 700 bytes a write",
              recording_of(replace, {.write_limit = 700}));
}

TEST(PowerCut, FreshFileIsAbsentOrWhole) {
  expect_safe("g_file_replace, a fresh file", recording_of(replace, {.is_fresh = true}));
}

TEST(PowerCut, LeftOverOfAnEarlierOneIsNoSecondTemporaryFile) {
  expect_safe("g_file_replace, after a power cut",
              recording_of(replace, {.has_left_over = true}));
}

TEST(PowerCut, ModeIsThereWithTheContent) {
  const Recording recording = recording_of([](const TemporaryDirectory& directory) {
    ASSERT_EQ(chmod((directory / "f").c_str(), 0664), 0);
    replace(directory);
  });
  bool has_attributes = false;
  for (const Step& step : recording.steps) {
    has_attributes |= step.kind == Step::kAttributes;
  }
  EXPECT_TRUE(has_attributes);
  expect_safe("g_file_replace, a mode of its own", recording);
}

TEST(PowerCut, FileThatALinkLeadsToIsOldOrNew) {
  expect_safe("g_file_replace, through a link",
              recording_of([](const TemporaryDirectory& directory) {
                ASSERT_EQ(symlink("f", (directory / "link").c_str()), 0);
                EXPECT_EQ(g_file_replace((directory / "link").c_str(), kNew.data(),
                                         static_cast<int64_t>(kNew.size())),
                          0);
              }));
}

TEST(PowerCut, CopyIsOldOrNew) {
  expect_safe("g_file_duplicate", recording_of(duplicate));
}

TEST(PowerCut, FreshCopyIsAbsentOrWhole) {
  expect_safe("g_file_duplicate, a fresh file",
              recording_of(duplicate, {.is_fresh = true}));
}
