// Two writers and a reader of one file.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>

#include "safe/file_support.h"
#include "support/next_function.h"

using namespace test;
using Names = std::vector<std::string>;

namespace {

constexpr int kRounds = 150;

// One letter, and as much of it as belongs to it.
std::string content_of(char letter) {
  return std::string(letter == 'a' ? 30'000 : 9'000, letter);
}

// The rounds that succeeded; -1 after a failure other than a lock that was not free in
// time.
int write_rounds(const std::string& path, char letter) {
  const std::string content = content_of(letter);
  int written = 0;
  for (int i = 0; i < kRounds; ++i) {
    const int result =
        g_file_replace(path.c_str(), content.data(), static_cast<int64_t>(content.size()));
    if (result == -1 && errno != EAGAIN) return -1;
    written += result == 0 ? 1 : 0;
  }
  return written;
}

// Without the test's help, so that nothing is missed meanwhile.
bool reads_whole_content(const std::string& path) {
  static thread_local char text[40'000];
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file == -1) return false;
  size_t size = 0;
  while (const ssize_t count = read(file, text + size, sizeof text - size)) {
    if (count < 0) break;
    size += static_cast<size_t>(count);
  }
  close(file);
  return size != 0 && std::string(text, size) == content_of(text[0]);
}

}  // namespace

// As on a disk, which takes its time: here the others come in between.
extern "C" int fsync(int descriptor) {
  static const auto real = test::next_function<int(int)>("fsync");
  std::this_thread::sleep_for(std::chrono::microseconds(300));
  return real(descriptor);
}

TEST(FileWriters, TwoThreadsAndAReaderSeeWholeFiles) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", content_of('a'));
  std::atomic<int> writing{2};
  int written[2] = {};
  std::thread writers[2];
  for (int i = 0; i < 2; ++i) {
    writers[i] = std::thread([&, i] {
      written[i] = write_rounds(path, i == 0 ? 'a' : 'b');
      --writing;
    });
  }
  int reads = 0;
  int mixtures = 0;
  do {
    mixtures += reads_whole_content(path) ? 0 : 1;
    ++reads;
  } while (writing != 0);
  for (std::thread& writer : writers) writer.join();
  EXPECT_EQ(mixtures, 0) << "of " << reads;
  EXPECT_GT(written[0], 0);
  EXPECT_GT(written[1], 0);
  EXPECT_EQ(names_in(directory.path()), Names{"f"});
}

TEST(FileWriters, TwoProcessesAndAReaderSeeWholeFiles) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", content_of('a'));
  pid_t writers[2];
  for (int i = 0; i < 2; ++i) {
    writers[i] = fork();
    if (writers[i] == 0) _exit(write_rounds(path, i == 0 ? 'a' : 'b') > 0 ? 0 : 1);
  }
  int reads = 0;
  int mixtures = 0;
  for (int left = 2; left > 0;) {
    mixtures += reads_whole_content(path) ? 0 : 1;
    ++reads;
    for (pid_t& writer : writers) {
      int status = 0;
      if (writer == 0 || waitpid(writer, &status, WNOHANG) == 0) continue;
      EXPECT_EQ(status, 0);
      writer = 0;
      --left;
    }
  }
  EXPECT_EQ(mixtures, 0) << "of " << reads;
  EXPECT_EQ(names_in(directory.path()), Names{"f"});
}

TEST(FileWriters, CopiesAndReplacementsMeetInOneFile) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("f", content_of('a'));
  const std::string from = directory.write("from", content_of('b'));
  std::atomic<bool> is_writing{true};
  std::thread writer([&] {
    write_rounds(path, 'a');
    is_writing = false;
  });
  int mixtures = 0;
  do {
    const int result = g_file_duplicate(from.c_str(), path.c_str());
    EXPECT_TRUE(result == 0 || (result == -1 && errno == EAGAIN));
    mixtures += reads_whole_content(path) ? 0 : 1;
  } while (is_writing);
  writer.join();
  EXPECT_EQ(mixtures, 0);
  EXPECT_EQ(names_in(directory.path()), (Names{"f", "from"}));
}
