// gw-conf when memory runs out, and when its file goes away meanwhile. The program is
// compiled into this one: its main() as gw_conf(), its calls of g_conf_open() as calls of
// open_meanwhile().
//
// SPDX-License-Identifier: MIT

#include <groundwork/conf.h>
#include <gtest/gtest.h>

#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "support/allocation_faults.h"
#include "support/temporary_directory.h"

using namespace test;

extern "C" int gw_conf(int argc, char** argv);
extern "C" GConf* open_meanwhile(const char* filename);

namespace {

// The C library's words for it.
const char* const kNoMemory = std::strerror(ENOMEM);

// Whether another program removes the file after gw-conf has looked for it.
bool file_goes_away = false;

using Arguments = std::vector<std::string>;

struct Result {
  int status;
  std::string output;
  std::string errors;
};

class GwConf : public testing::Test {
 protected:
  ~GwConf() override { file_goes_away = false; }

  void write(std::string_view text) { directory_.write("app.conf", text); }
  bool exists() const { return access(path_.c_str(), F_OK) == 0; }
  std::string text() const { return exists() ? read_file(path_) : "no file"; }
  std::string message(std::string_view reason) const {
    return "gw-conf: " + path_ + ": " + std::string(reason) + "\n";
  }

  // Runs a command. Of the allocations only those of gw-conf count.
  Result run(const Arguments& arguments, AllocationFaults* faults = nullptr) {
    Arguments words{"gw-conf", path_};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    optind = 0;  // begin anew
    if (faults != nullptr) faults->resume();
    const int status = gw_conf(static_cast<int>(words.size()), pointers.data());
    if (faults != nullptr) faults->pause();
    std::string errors = testing::internal::GetCapturedStderr();
    return {status, testing::internal::GetCapturedStdout(), errors};
  }

  // Runs a command on the text, or without a file, again and again, each time with another
  // allocation failing. It does all that it does with enough memory, or nothing but tell
  // one of the reasons.
  void expect_all_or_a_message(const char* before, const Arguments& arguments,
                               std::string_view usual_reason) {
    const auto restore = [&] {
      std::remove(path_.c_str());
      if (before != nullptr) write(before);
    };
    restore();
    const std::string old_text = text();
    const Result good = run(arguments);
    const std::string new_text = text();
    ASSERT_EQ(good.status, 0);
    for_each_failed_allocation([&](AllocationFaults& faults) {
      faults.pause();
      restore();
      const Result result = run(arguments, &faults);
      if (result.status == 0) {
        EXPECT_EQ(result.output, good.output);
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(text(), new_text);
      } else {
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(result.errors == message(kNoMemory) ||
                    result.errors == message(usual_reason))
            << result.errors;
        EXPECT_EQ(text(), old_text);
      }
    });
  }

 private:
  TemporaryDirectory directory_;
  const std::string path_ = directory_ / "app.conf";
};

// What is told when g_conf_open() fails for lack of memory.
constexpr std::string_view kNotLoaded = "cannot be read";
constexpr char kText[] = "# c\n[a]\nk = 1\nl=2\n[b]\nx=1\n";

TEST_F(GwConf, SetStoresTheValueOrTellsThatMemoryIsExhausted) {
  for (const Arguments& arguments :
       {Arguments{"set", "a", "k", "9"}, Arguments{"set", "a", "new", "9"},
        Arguments{"set", "z", "new", "9"}}) {
    expect_all_or_a_message(kText, arguments, kNotLoaded);
  }
}

TEST_F(GwConf, SetCreatesTheFileOrTellsThatMemoryIsExhausted) {
  expect_all_or_a_message(nullptr, {"set", "a", "k", "9"}, kNoMemory);
}

TEST_F(GwConf, UnsetRemovesOrTellsThatMemoryIsExhausted) {
  expect_all_or_a_message(kText, {"unset", "a", "k"}, kNotLoaded);
  expect_all_or_a_message(kText, {"unset", "b"}, kNotLoaded);
}

TEST_F(GwConf, ReadersPrintAllOrTellThatMemoryIsExhausted) {
  for (const Arguments& arguments :
       {Arguments{"get", "a", "k"}, Arguments{"list"}, Arguments{"list", "a"}}) {
    expect_all_or_a_message(kText, arguments, kNotLoaded);
  }
  expect_all_or_a_message("", {"list"}, kNotLoaded);
  expect_all_or_a_message(kText, {"lint"}, kNotLoaded);
}

TEST_F(GwConf, AFileThatGoesAwayWhileItIsOpenedIsTold) {
  file_goes_away = true;
  for (const Arguments& arguments :
       {Arguments{"get", "a", "k", "default"}, Arguments{"unset", "a"},
        Arguments{"unset", "a", "k"}, Arguments{"list"}, Arguments{"list", "a"},
        Arguments{"lint"}}) {
    write(kText);
    const Result result = run(arguments);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "") << arguments[0];
    EXPECT_EQ(result.errors, message("No such file or directory")) << arguments[0];
    EXPECT_FALSE(exists());
  }
}

TEST_F(GwConf, SetCreatesAFileThatGoesAwayWhileItIsOpened) {
  file_goes_away = true;
  write(kText);
  const Result result = run({"set", "a", "k", "9"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.errors, "");
  EXPECT_EQ(text(), "[a]\nk=9\n");
}

}  // namespace

extern "C" GConf* open_meanwhile(const char* filename) {
  if (file_goes_away) std::remove(filename);
  return g_conf_open(filename);
}
