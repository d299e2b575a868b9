// Base64 side by side with the base64 command.
//
// SPDX-License-Identifier: MIT

#include <groundwork/crypt.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "support/temporary_directory.h"

namespace {

constexpr std::size_t kLongest = 4096;

// A file for each length, named after it; one run of the shell answers for all.
TEST(Base64AgainstCoreutils, AgreesForEveryLengthUpTo4096InBothDirections) {
  const test::TemporaryDirectory directory;
  std::mt19937 random(3);
  std::vector<std::string> inputs;
  for (std::size_t size = 0; size <= kLongest; ++size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    // Where a pair is left over, one that is encoded as usual.
    if (size % 3 == 2) bytes.back() = static_cast<char>(bytes.back() & 0x7F);
    directory.write(std::to_string(size), bytes);
    inputs.push_back(bytes);
  }
  const std::string command = "cd '" + directory.path() + "' && i=0 && while [ $i -le " +
                              std::to_string(kLongest) +
                              " ]; do base64 -w0 $i || exit 1; echo; i=$((i+1)); done";
  std::FILE* const pipe = popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::vector<char> line(8192);
  std::vector<char> result(8192);
  for (std::size_t size = 0; size <= kLongest; ++size) {
    ASSERT_NE(std::fgets(line.data(), static_cast<int>(line.size()), pipe), nullptr)
        << size;
    std::string theirs = line.data();
    ASSERT_EQ(theirs.back(), '\n');
    theirs.pop_back();
    const std::string& input = inputs[size];
    ASSERT_EQ(g_crypt_base64_encode(input.data(), result.data(), static_cast<int>(size)),
              static_cast<int>(theirs.size()));
    ASSERT_EQ(result.data(), theirs) << size;
    ASSERT_EQ(g_crypt_base64_decode(theirs.c_str(), result.data()), static_cast<int>(size));
    ASSERT_EQ(std::string(result.data(), size + 1), input + '\0') << size;
  }
  EXPECT_EQ(pclose(pipe), 0);
}

}  // namespace
