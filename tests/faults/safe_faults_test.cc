// The safe layer.
//
// SPDX-License-Identifier: MIT

#include <cerrno>
#include <cstdint>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include <groundwork/safe.h>

#include "faults/sweep.h"
#include "faults/working_directory.h"

using namespace faults;
using test::read_file;

namespace {

void read_clock(Pass& pass) {
  EXPECT_GT(faulty(pass, [] { return g_monotonic_ms(); }), 0);
}

// --- Files.

struct Result {
  int value;
  int error;
};

// Whether something was struck that no replacement gets past. A descriptor that cannot be
// closed, or a lock that cannot be released, may be of no importance.
bool is_refused(const Pass& pass) {
  if (pass.struck(Call::kAllocation, Call::kOpenat, Call::kFstat, Call::kStat,
                  Call::kFstatat, Call::kReadlinkat, Call::kFchown, Call::kFchmod,
                  Call::kFutimens, Call::kRenameat, Call::kRead, Call::kWrite) == 0) {
    return false;
  }
  return pass.kind() == Effect::kError && pass.error() != EINTR;
}

// What holds after each replacement of "file", which held `old` before.
void expect_promise(const Pass& pass, const Result& result, const std::string& old,
                    const std::string& wanted) {
  EXPECT_EQ(pass.reports(), 0);
  EXPECT_EQ(read_file("file"), result.value == -1 ? old : wanted);
  EXPECT_TRUE(access(".file.new", F_OK) == -1 || pass.struck(Call::kUnlinkat) != 0)
      << "the temporary file was left";
  if (is_refused(pass)) {
    EXPECT_EQ(result.value, -1);
  }
  if (result.value == 0) {
    EXPECT_EQ(pass.struck(Call::kFsync), 0);
  } else {
    EXPECT_TRUE(pass.struck()) << "failed without a reason: " << result.error;
    EXPECT_TRUE(result.value != 1 || pass.struck(Call::kFsync) != 0);
    int error = pass.is_of_memory() ? ENOMEM : pass.error();
    if (pass.struck(Call::kFchown) != 0 && error == EINVAL) error = EPERM;
    // What stands in the way, and is not there when it is to be removed.
    if (pass.struck(Call::kUnlinkat) != 0 && error == ENOENT) error = EEXIST;
    if (error != -1) {
      EXPECT_EQ(result.error, error);
    }
  }
  struct stat status;
  ASSERT_EQ(stat("file", &status), 0);
  EXPECT_EQ(status.st_mode & 07777, mode_t{0640});
  EXPECT_EQ(status.st_uid, geteuid() == 0 ? 4321 : geteuid());
}

// Everything that a replacement may meet: a link, an owner and a mode of its own, and what
// a power cut left.
void prepare(const WorkingDirectory& directory, const std::string& content) {
  directory.write("file", content);
  if (geteuid() == 0) {
    EXPECT_EQ(chown("file", 4321, 4321), 0);
  }
  EXPECT_EQ(chmod("file", 0640), 0);
  EXPECT_EQ(symlink("file", "link"), 0);
  directory.write(".file.new", "left");
}

void replace_file(Pass& pass) {
  const WorkingDirectory directory;
  prepare(directory, "old");
  const Result result = faulty(pass, [] {
    errno = 0;
    const int value = g_file_replace("link", "the new content", 15);
    return Result{value, errno};
  });
  if (result.value == -1 && access(".file.new", F_OK) == 0 &&
      read_file(".file.new") == "left") {
    EXPECT_EQ(unlink(".file.new"), 0);  // it did not come that far
  }
  expect_promise(pass, result, "old", "the new content");
}

void make_file(Pass& pass) {
  const WorkingDirectory directory;
  const Result result = faulty(pass, [] {
    errno = 0;
    const int value = g_file_replace("file", "content", 7);
    return Result{value, errno};
  });
  EXPECT_EQ(access("file", F_OK) == 0, result.value != -1);
  if (result.value != -1) {
    EXPECT_EQ(read_file("file"), "content");
  }
  if (is_refused(pass)) {
    EXPECT_EQ(result.value, -1);
  }
  if (!pass.struck()) {
    EXPECT_EQ(result.value, 0);
  }
  EXPECT_TRUE(access(".file.new", F_OK) == -1 || pass.struck(Call::kUnlinkat) != 0);
}

void duplicate_file(Pass& pass) {
  const WorkingDirectory directory;
  std::string content;
  for (int i = 0; content.size() < 20000; ++i) content += std::to_string(i) + " ";
  prepare(directory, "old");
  directory.write("from", content);
  EXPECT_EQ(chmod("from", 0640), 0);
  const Result result = faulty(pass, [] {
    errno = 0;
    const int value = g_file_duplicate("from", "link");
    return Result{value, errno};
  });
  if (result.value == -1 && access(".file.new", F_OK) == 0 &&
      read_file(".file.new") == "left") {
    EXPECT_EQ(unlink(".file.new"), 0);
  }
  const bool ends_early = pass.struck(Call::kRead) != 0 && pass.kind() == Effect::kEnd;
  const std::string copy = read_file("file");
  expect_promise(pass, result, "old",
                 ends_early ? content.substr(0, copy.size()) : content);
  EXPECT_EQ(read_file("from"), content);
}

const Scenarios scenarios("safe",
                          {
                              {"ReadTheClock", {"g_monotonic_ms"}, read_clock},
                              {"ReplaceAFile", {"g_file_replace"}, replace_file},
                              {"MakeAFile", {}, make_file},
                              {"DuplicateAFile", {"g_file_duplicate"}, duplicate_file},
                          });

}  // namespace
