// Another program at the same files, between any two calls that one function makes of the
// system: it replaces, cuts, removes and swaps. Whatever it does and whenever, a function
// ends, gives back its descriptors and memory, and returns what one of the contents that
// the file had at some time allows. What is replaced durably is never torn, and what is
// removed by the safe layer is inside the tree.
//
// All happens below a directory of the test's own.
//
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <groundwork/conf.h>
#include <groundwork/dir.h>
#include <groundwork/file.h>
#include <groundwork/log.h>
#include <groundwork/safe.h>
#include <groundwork/url.h>

#include "faults/fault_plan.h"
#include "faults/working_directory.h"
#include "support/allocation_faults.h"
#include "support/descriptors.h"
#include "support/uncounted_allocations.h"

using namespace faults;

namespace {

constexpr char kOld[] = "[s]\na=1\nb=old\n";
constexpr char kShort[] = "[t]\n";
constexpr char kLong[] = "[s]\na=1\nb=another\nc=3\n# and a comment\n";
constexpr char kAdded[] = "x=y\n";
constexpr char kSecret[] = "outside";

// --- What the other program does.

// What a job has removed or renamed already cannot be meddled with.
void must(bool done, const char* what) {
  if (!done && errno != ENOENT) ADD_FAILURE() << what << ": " << std::strerror(errno);
}

void write_file(const char* path, const char* text, const char* mode = "w") {
  std::FILE* const file = std::fopen(path, mode);
  must(file != nullptr, path);
  if (file == nullptr) return;
  std::fputs(text, file);
  std::fclose(file);
}

void replace(const char* text) {
  write_file("spare", text);
  must(std::rename("spare", "f") == 0 || errno == EISDIR, "rename");
}

// Of a file that holds `before`, what it holds afterwards; "-" for none.
using After = std::string (*)(const std::string& before);

struct Act {
  const char* name;
  void (*act)();
  After after;
};

std::string none(const std::string&) {
  return "-";
}

constexpr Act kFileActs[] = {
    {"a shorter file takes its place", [] { replace(kShort); },
     [](const std::string&) -> std::string { return kShort; }},
    {"a longer file takes its place", [] { replace(kLong); },
     [](const std::string&) -> std::string { return kLong; }},
    {"it is emptied", [] { must(truncate("f", 0) == 0, "truncate"); },
     [](const std::string&) -> std::string { return ""; }},
    {"it is cut", [] { must(truncate("f", 6) == 0, "truncate"); },
     [](const std::string& before) {
       return (before + std::string(6, '\0')).substr(0, 6);
     }},
    {"something is added", [] { write_file("f", kAdded, "a"); },
     [](const std::string& before) { return before + kAdded; }},
    {"it is removed", [] { unlink("f"); }, none},
    {"a directory takes its place",
     [] {
       unlink("f");
       mkdir("f", 0755);
     },
     none},
    {"a link takes its place",
     [] {
       unlink("f");
       must(symlink("outside/canary", "f") == 0, "symlink");
     },
     [](const std::string&) -> std::string { return kSecret; }},
};

// As nothing of the safe layer waits for the other end.
constexpr Act kFifo = {"a FIFO takes its place",
                       [] {
                         unlink("f");
                         must(mkfifo("f", 0644) == 0, "mkfifo");
                       },
                       none};

constexpr Act kTreeActs[] = {
    {"an entry goes", [] { unlink("d/x"); }, none},
    {"an entry comes", [] { write_file("d/new", ""); }, none},
    {"a directory below goes",
     [] {
       unlink("d/e/y");
       rmdir("d/e");
     },
     none},
    {"a directory below becomes a file",
     [] {
       std::rename("d/e", "moved");
       write_file("d/e", "");
     },
     none},
    {"a directory below becomes a link that leads outside",
     [] {
       std::rename("d/e", "moved");
       must(symlink("../outside", "d/e") == 0 || errno == EEXIST || errno == ENOENT,
            "symlink");
     },
     none},
    {"a file becomes a directory",
     [] {
       unlink("d/x");
       mkdir("d/x", 0755);
       write_file("d/x/z", "");
     },
     none},
    {"it is moved away", [] { std::rename("d", "moved"); }, none},
    {"a link that leads outside takes its place",
     [] {
       std::rename("d", "moved");
       must(symlink("outside", "d") == 0 || errno == EEXIST, "symlink");
     },
     none},
    {"another takes its place",
     [] {
       std::rename("d", "moved");
       mkdir("d", 0755);
       write_file("d/other", "");
     },
     none},
};

// --- Where and when.

const Act* act = nullptr;
int act_at = 0;
int calls_seen = 0;

int drop_line(const char* /*line*/, void* /*arg*/) {
  return 0;
}

void meddle(int nth) {
  const test::UncountedAllocations uncounted;
  calls_seen = nth;
  if (nth == act_at) act->act();
}

// What is left of a file; "-" for none.
std::string text_of(const char* path) {
  struct stat status;
  if (stat(path, &status) != 0 || !S_ISREG(status.st_mode)) return "-";
  return test::read_file(path);
}

bool is_there(const char* path) {
  struct stat status;
  return lstat(path, &status) == 0;
}

// Runs a job with each act before each of its calls, and after the last.
template <size_t N, typename Job>
void sweep(const Act (&acts)[N], Job job) {
  for (const Act& one : acts) {
    act = &one;
    for (act_at = 1, calls_seen = 1; calls_seen >= act_at; ++act_at) {
      SCOPED_TRACE(testing::Message() << one.name << " before call " << act_at);
      ASSERT_LT(act_at, 1000);
      const WorkingDirectory directory;
      directory.write("f", kOld);
      directory.make("outside");
      directory.write("outside/canary", kSecret);
      directory.make("d");
      directory.write("d/x", "x");
      directory.make("d/e");
      directory.write("d/e/y", "y");
      g_debug_set_handler(drop_line, nullptr);
      calls_seen = 0;
      const int descriptors = test::count_open_descriptors();
      job();
      EXPECT_EQ(test::count_open_descriptors(), descriptors) << "a descriptor was left";
      if (testing::Test::HasFailure()) return;
    }
  }
}

// Calls the library while the other program is at work. No block may be left once
// `clean_up` has run.
template <typename Call, typename CleanUp>
void meddled(Call call, CleanUp clean_up) {
  test::AllocationFaults blocks(0);
  blocks.pause();
  begin_plan({});
  watch_calls(meddle);
  blocks.resume();
  resume_plan();
  call();
  pause_plan();
  blocks.pause();
  watch_calls(nullptr);
  end_plan();
  clean_up();
  EXPECT_EQ(blocks.outstanding(), 0) << "memory was lost";
}

template <typename Call>
void meddled(Call call) {
  meddled(call, [] {});
}

// Whether a text that was read is the beginning of what the file held before or after.
bool is_readable(const std::string& text) {
  const std::string old = kOld;
  const std::string after = act->after(old);
  return old.starts_with(text) || after.starts_with(text);
}

// --- Files.

TEST(Meddler, AFileIsReadAsItWasOrAsItIs) {
  sweep(kFileActs, [] {
    char* text = nullptr;
    int64_t size = -2;
    meddled([&] { text = g_file_read_buf("f", &size); },
            [&] {
              if (text != nullptr) {
                EXPECT_TRUE(is_readable(std::string(text, static_cast<size_t>(size))))
                    << text;
              }
              std::free(text);
            });
  });
}

TEST(Meddler, AnOpenFileGivesWhatItHolds) {
  sweep(kFileActs, [] {
    char text[100] = "";
    int64_t count = -1;
    meddled([&] {
      GFile* const file = g_file_open("f", 0);
      if (file == nullptr) return;
      g_file_lock_read(file);
      g_file_seek(file, 0, SEEK_SET);
      count = g_file_read(file, text, sizeof text);
      g_file_unlock(file);
      g_file_close(file);
    });
    if (count >= 0) {
      EXPECT_TRUE(is_readable(std::string(text, static_cast<size_t>(count)))) << text;
    }
  });
}

TEST(Meddler, AStreamGivesWhatItsFileHolds) {
  url_add_module(&URL_module_file);
  sweep(kFileActs, [] {
    char text[200] = "";
    char line[100];
    meddled([&] {
      URL const url = url_open("file:f");
      if (url == nullptr) return;
      while (url_gets(url, line, sizeof line) != nullptr) std::strcat(text, line);
      url_close(url);
    });
    // What was added or put there in between may be seen in part.
    EXPECT_TRUE(is_readable(text) || std::strncmp(text, kOld, 4) == 0) << text;
  });
}

TEST(Meddler, QuestionsAboutAFileEnd) {
  sweep(kFileActs, [] {
    meddled([] {
      g_file_exist("f");
      g_file_size("f");
      std::free(g_file_exist_path(".", "f"));
      g_dir_exist("f");
    });
  });
}

TEST(Meddler, ACopyHoldsWhatTheFileHeld) {
  sweep(kFileActs, [] {
    meddled([] { g_file_copy("f", "copy"); });
    const std::string copy = text_of("copy");
    EXPECT_TRUE(copy == "-" || is_readable(copy)) << copy;
  });
}

TEST(Meddler, WritersOfOneFileEnd) {
  sweep(kFileActs, [] {
    meddled([] {
      g_file_write_buf("f", "new", 3);
      g_file_touch("f");
      g_file_rename("f", "g");
      g_file_remove("g");
    });
  });
}

TEST(Meddler, AConfigurationThatIsSyncedEnds) {
  sweep(kFileActs, [] {
    GConf* const conf = g_conf_open("f");
    ASSERT_NE(conf, nullptr);
    g_conf_write_string(conf, "s", "b", "new");
    meddled([&] { g_conf_sync(conf); });
    EXPECT_EQ(conf->dirty, 0);
    EXPECT_EQ(g_conf_close(conf), 0);
  });
}

// --- The safe layer.

// What a file may hold after a replacement by `wanted` that returned `result`. The other
// program came before or after it, or not at all.
void expect_whole(int result, const std::string& wanted, int error) {
  const std::string text = text_of("f");
  std::set<std::string> allowed = {act->after(wanted)};  // it came last
  if (result == -1) {
    EXPECT_NE(error, 0);
    allowed = {kOld, act->after(kOld)};
  } else {
    allowed.insert(wanted);
  }
  EXPECT_TRUE(allowed.contains(text)) << text;
  EXPECT_FALSE(is_there(".f.new") || is_there("outside/.canary.new"));
}

constexpr char kSaved[] = "[s]\na=1\nb=new\n";

void save_meddled(int force) {
  GConf* const conf = g_conf_open("f");
  ASSERT_NE(conf, nullptr);
  g_conf_write_string(conf, "s", "b", "new");
  int result = -2;
  int error = 0;
  meddled([&] {
    errno = 0;
    result = g_conf_save(conf, force);
    error = errno;
  });
  EXPECT_EQ(conf->dirty, result == -1 ? 1 : 0);
  if (force == 0) {
    expect_whole(result, kSaved, error);
  } else if (result != -1 && text_of("f") != act->after(kSaved)) {
    GConf* const read = g_conf_open("f");
    EXPECT_NE(read, nullptr);
    EXPECT_STREQ(g_conf_read_string(read, "s", "b", ""), "new");
    g_conf_close(read);
  }
  conf->dirty = 0;
  g_conf_close(conf);
}

TEST(Meddler, ASaveNeverTearsTheFileNorTakesAnothersChangeAway) {
  const auto job = [] { save_meddled(0); };
  sweep(kFileActs, job);
  sweep({kFifo}, job);
}

TEST(Meddler, AForcedSaveReadsAsTheConf) {
  const auto job = [] { save_meddled(1); };
  sweep(kFileActs, job);
  sweep({kFifo}, job);
}

TEST(Meddler, AReloadTakesInOneWholeContent) {
  sweep(kFileActs, [] {
    GConf* const conf = g_conf_open("f");
    ASSERT_NE(conf, nullptr);
    int result = -2;
    int error = 0;
    meddled(
        [&] {
          errno = 0;
          result = g_conf_reload(conf);
          error = errno;
        },
        [&] {
          if (result == -1) {
            EXPECT_NE(error, 0);
          }
          if (result <= 0) {
            EXPECT_STREQ(g_conf_read_string(conf, "s", "b", ""), "old");
          }
          g_conf_close(conf);
        });
  });
}

TEST(Meddler, AReplacementIsWholeOrNotThere) {
  const auto job = [] {
    int result = -2;
    int error = 0;
    meddled([&] {
      errno = 0;
      result = g_file_replace("f", "new", 3);
      error = errno;
    });
    expect_whole(result, "new", error);
  };
  sweep(kFileActs, job);
  sweep({kFifo}, job);
}

TEST(Meddler, ADuplicateIsWholeOrNotThere) {
  const auto job = [] {
    int result = -2;
    meddled([&] { result = g_file_duplicate("f", "copy"); });
    const std::string copy = text_of("copy");
    EXPECT_EQ(result == -1, copy == "-");
    EXPECT_TRUE(copy == "-" || copy == kOld || copy == act->after(kOld)) << copy;
    EXPECT_FALSE(is_there(".copy.new"));
  };
  sweep(kFileActs, job);
  sweep({kFifo}, job);
}

// --- Trees.

TEST(Meddler, AWalkAndAListEnd) {
  sweep(kTreeActs, [] {
    meddled([] {
      g_dir_list_free(g_dir_list("d", 0, nullptr));
      const auto count = [](const char*, auto*, void*) { return 0; };
      g_scandir("d", count, nullptr);
    });
  });
}

TEST(Meddler, AKeptRemovalEnds) {
  sweep(kTreeActs, [] { meddled([] { g_rmdir("d"); }); });
}

TEST(Meddler, ARemovalStaysInsideItsTree) {
  sweep(kTreeActs, [] {
    int result = -2;
    int error = 0;
    meddled([&] {
      errno = 0;
      result = g_dir_remove("d");
      error = errno;
    });
    EXPECT_EQ(text_of("outside/canary"), kSecret);
    if (result == -1) {
      EXPECT_NE(error, 0);
    }
  });
}

TEST(Meddler, DirectoriesAreMadeOrNot) {
  sweep(kTreeActs, [] {
    int result = -2;
    meddled([&] { result = g_dir_make("d/e/new/deep", 0755); });
    char path[] = "d/e/kept/deep/";
    meddled([&] { g_mkdir(path); });
    EXPECT_GE(result, -1);
  });
}

}  // namespace
