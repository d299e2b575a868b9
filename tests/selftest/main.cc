// SPDX-License-Identifier: MIT
// groundwork-selftest: the library's whole test suite in one program, for the device.
//
// Each suite runs in a process of its own, so that one that crashes takes no other along.
// The results come back through a pipe.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "selftest/board_facts.h"

namespace {

// Asks the loader, which a static program does not have.
constexpr char kLeftOut[] = "ScandirStatus.TheProgramIsLinkedToTheWalkOfItsOwnLayout";

constexpr char kUsage[] =
    "usage: groundwork-selftest [OPTION]...\n"
    "\n"
    "Runs the tests of libgroundwork, which is part of this program, on this machine, and\n"
    "writes their results to standard output in the Test Anything Protocol. Uses no "
    "network\n"
    "but loopback.\n"
    "\n"
    "  --list            write the names of the tests and end\n"
    "  --filter PATTERN  run the tests whose name matches: * and ? stand for any text and "
    "any\n"
    "                    character, : separates patterns, - goes before those to leave "
    "out\n"
    "  --tmpdir FOLDER   put temporary files there (else $TMPDIR, memory or /tmp); every "
    "user\n"
    "                    must be able to enter it\n"
    "  --facts           measure this board and end: clock, timers, locks, file sync\n"
    "  --no-facts        do not measure it before the tests\n"
    "  --help            this text\n"
    "\n"
    "Exit status: 0 when all tests passed, 1 when one failed, 2 for a wrong call.\n";

std::string name_of(const testing::TestSuite& suite, const testing::TestInfo& test) {
  return std::string(suite.name()) + "." + test.name();
}

// In a child: one line for each test that ended, and its failures before it.
class ResultWriter : public testing::EmptyTestEventListener {
 public:
  explicit ResultWriter(int descriptor) : results_(fdopen(descriptor, "w")) {}

 private:
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (result.skipped()) {
      reason_ = result.message();
      reason_.resize(std::min(reason_.size(), reason_.find('\n')));
    }
    if (!result.failed()) return;
    std::fprintf(results_, "# %s:%d\n",
                 result.file_name() != nullptr ? result.file_name() : "?",
                 result.line_number());
    std::string line;
    for (const char* at = result.message(); *at != '\0'; ++at) {
      if (*at != '\n') {
        line += *at;
        continue;
      }
      std::fprintf(results_, "#   %s\n", line.c_str());
      line.clear();
    }
    std::fprintf(results_, "#   %s\n", line.c_str());
    std::fflush(results_);
  }
  void OnTestEnd(const testing::TestInfo& test) override {
    const testing::TestResult& result = *test.result();
    std::fprintf(results_, "%s %s.%s", result.Failed() ? "not" : "ok",
                 test.test_suite_name(), test.name());
    if (result.Skipped()) std::fprintf(results_, " # SKIP %s", reason_.c_str());
    std::fprintf(results_, "\n");
    std::fflush(results_);
    reason_.clear();
  }

  std::FILE* results_;
  std::string reason_;  // why the test was skipped
};

class Suites {
 public:
  // Runs the tests of a suite in a child and writes their results. Returns how many failed.
  int run(const testing::TestSuite& suite, const std::vector<std::string>& names) {
    int ends[2];
    if (pipe(ends) != 0) return fail_all(names, "pipe");
    const pid_t child = fork();
    if (child < 0) return fail_all(names, "fork");
    if (child == 0) {
      close(ends[0]);
      run_as_child(suite, ends[1]);
    }
    close(ends[1]);
    size_t ended = 0;
    int failures = 0;
    std::FILE* const results = fdopen(ends[0], "r");
    char line[4096];
    while (std::fgets(line, sizeof line, results) != nullptr) {
      line[std::strcspn(line, "\n")] = '\0';
      if (line[0] == '#') {
        std::printf("%s\n", line);
        continue;
      }
      const char* const name = std::strchr(line, ' ') + 1;
      const bool passed = line[0] != 'n';
      std::printf("%s %d - %s\n", passed ? "ok" : "not ok", ++number_, name);
      std::fflush(stdout);
      failures += passed ? 0 : 1;
      ++ended;
    }
    std::fclose(results);
    int status = 0;
    waitpid(child, &status, 0);
    if (ended < names.size()) {
      const std::string reason =
          WIFSIGNALED(status) ? std::string("ended by ") + strsignal(WTERMSIG(status))
                              : "ended with " + std::to_string(WEXITSTATUS(status));
      failures += fail_all({names.begin() + static_cast<ptrdiff_t>(ended), names.end()},
                           reason.c_str());
    }
    return failures;
  }

 private:
  [[noreturn]] static void run_as_child(const testing::TestSuite& suite, int results) {
    // What the library and the tests write there is not for the reader of the results.
    const int silence = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(silence, STDOUT_FILENO);
    dup2(silence, STDERR_FILENO);
    close(silence);
    fcntl(results, F_SETFD, FD_CLOEXEC);
    testing::GTEST_FLAG(filter) = only(suite);
    testing::UnitTest::GetInstance()->listeners().Append(new ResultWriter(results));
    std::exit(RUN_ALL_TESTS());
  }

  // The tests of a suite that were asked for, by their names.
  static std::string only(const testing::TestSuite& suite) {
    std::string names;
    for (int i = 0; i < suite.total_test_count(); ++i) {
      const testing::TestInfo& test = *suite.GetTestInfo(i);
      if (test.should_run()) names += (names.empty() ? "" : ":") + name_of(suite, test);
    }
    return names;
  }

  int fail_all(const std::vector<std::string>& names, const char* reason) {
    for (const std::string& name : names) {
      std::printf("not ok %d - %s\n# %s\n", ++number_, name.c_str(), reason);
    }
    return static_cast<int>(names.size());
  }

  int number_ = 0;
};

struct Options {
  std::string filter = "*";
  bool lists = false;
  bool tells_facts = false;
  bool leaves_out_facts = false;
};

// False for a wrong call.
bool parse(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    const bool has_value = i + 1 < argc;
    if (option == "--list") {
      options.lists = true;
    } else if (option == "--facts") {
      options.tells_facts = true;
    } else if (option == "--no-facts") {
      options.leaves_out_facts = true;
    } else if (option == "--filter" && has_value) {
      options.filter = argv[++i];
    } else if (option == "--tmpdir" && has_value) {
      setenv("TMPDIR", argv[++i], 1);
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  Options options;
  if (!parse(argc, argv, options)) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  if (options.tells_facts) {
    write_board_facts("");
    return 0;
  }

  // Has the tests chosen, and runs none.
  const bool leaves_out = options.filter.find('-') != std::string::npos;
  std::string filter =
      "--gtest_filter=" + options.filter + (leaves_out ? ":" : "-") + kLeftOut;
  std::string list = "--gtest_list_tests";
  std::vector<char*> arguments = {argv[0], filter.data(), list.data(), nullptr};
  int count = 3;
  testing::InitGoogleTest(&count, arguments.data());
  const int own_output = dup(STDOUT_FILENO);
  std::fflush(stdout);
  dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
  if (RUN_ALL_TESTS() != 0) return 2;
  testing::GTEST_FLAG(list_tests) = false;
  std::fflush(stdout);
  dup2(own_output, STDOUT_FILENO);
  close(own_output);

  const testing::UnitTest& all = *testing::UnitTest::GetInstance();
  if (!options.lists) std::printf("TAP version 13\n1..%d\n", all.test_to_run_count());
  std::fflush(stdout);
  if (!options.lists && !options.leaves_out_facts) write_board_facts("# ");
  Suites suites;
  int failures = 0;
  for (int i = 0; i < all.total_test_suite_count(); ++i) {
    const testing::TestSuite& suite = *all.GetTestSuite(i);
    std::vector<std::string> names;
    for (int j = 0; j < suite.total_test_count(); ++j) {
      const testing::TestInfo& test = *suite.GetTestInfo(j);
      if (test.should_run()) names.push_back(name_of(suite, test));
    }
    if (options.lists) {
      for (const std::string& name : names) std::printf("%s\n", name.c_str());
    } else if (!names.empty()) {
      failures += suites.run(suite, names);
    }
  }
  return failures == 0 ? 0 : 1;
}
