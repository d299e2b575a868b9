// Compares Base64 with the base64 command: every length up to 4096 in a few runs of it,
// since starting a process for each takes half a minute on a loaded machine.
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

constexpr size_t kLongest = 4096;

// For each length some bytes. Where a pair is left over, one that is encoded as usual.
std::vector<std::string> inputs_of_every_length() {
  std::mt19937 random(3);
  std::vector<std::string> inputs;
  for (size_t size = 0; size <= kLongest; ++size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    if (size % 3 == 2) bytes.back() = static_cast<char>(bytes.back() & 0x7F);
    inputs.push_back(bytes);
  }
  return inputs;
}

std::string encode(const std::string& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, 'x');
  EXPECT_EQ(
      g_crypt_base64_encode(bytes.data(), text.data(), static_cast<int>(bytes.size())),
      static_cast<int>(text.size() - 1));
  EXPECT_EQ(text.back(), '\0');
  text.pop_back();
  return text;
}

// What the command prints for `input`.
std::string base64_command(const std::string& options, const std::string& input) {
  const test::TemporaryDirectory directory;
  directory.write("input", input);
  const std::string command = "base64 " + options + " '" + directory.path() + "/input'";
  std::FILE* const pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return "no pipe";
  std::string output;
  std::vector<char> piece(65536);
  for (size_t count; (count = std::fread(piece.data(), 1, piece.size(), pipe)) > 0;) {
    output.append(piece.data(), count);
  }
  EXPECT_EQ(pclose(pipe), 0);
  return output;
}

// The command's text for each input. All go through one run, each filled up with zero bits
// to a whole group, as padding is defined; characters of nothing but these become "=".
std::vector<std::string> texts_by_coreutils(const std::vector<std::string>& inputs) {
  std::string filled;
  for (const std::string& input : inputs) {
    filled += input;
    filled.append((3 - input.size() % 3) % 3, '\0');
  }
  const std::string encoded = base64_command("-w0", filled);
  std::vector<std::string> texts;
  size_t at = 0;
  for (const std::string& input : inputs) {
    const size_t padding = (3 - input.size() % 3) % 3;
    const size_t size = (input.size() + padding) / 3 * 4;
    texts.push_back(encoded.substr(at, size - padding) + std::string(padding, '='));
    at += size;
  }
  EXPECT_EQ(at, encoded.size());
  return texts;
}

TEST(Base64AgainstCoreutils, AgreesForEveryLengthUpTo4096InBothDirections) {
  const std::vector<std::string> inputs = inputs_of_every_length();
  const std::vector<std::string> texts = texts_by_coreutils(inputs);
  for (size_t size = 0; size <= kLongest; ++size) {
    ASSERT_EQ(encode(inputs[size]), texts[size]) << size;
    std::string decoded(size + 3, 'x');
    ASSERT_EQ(g_crypt_base64_decode(texts[size].c_str(), decoded.data()),
              static_cast<int>(size));
    ASSERT_EQ(decoded.substr(0, size + 1), inputs[size] + '\0') << size;
  }
}

TEST(Base64AgainstCoreutils, CoreutilsDecodesWhatWeEncodeAtEveryLengthUpTo4096) {
  std::string lines;
  std::string expected;
  for (const std::string& input : inputs_of_every_length()) {
    lines += encode(input) + '\n';
    expected += input;
  }
  EXPECT_TRUE(base64_command("-d", lines) == expected);
}

// Padding as the command itself writes it.
TEST(Base64AgainstCoreutils, AgreesAboutPaddingForTheShortestAndTheLongest) {
  const std::vector<std::string> inputs = inputs_of_every_length();
  for (size_t size = 0; size <= kLongest; ++size) {
    if (size > 12 && size < kLongest - 5) continue;
    EXPECT_EQ(encode(inputs[size]), base64_command("-w0", inputs[size])) << size;
  }
}

}  // namespace
