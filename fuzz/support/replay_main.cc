// Runs a target's body over the files of a directory, once each, as an ordinary test.
//
// SPDX-License-Identifier: MIT

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIRECTORY|FILE\n", argv[0]);
    return 2;
  }
  std::vector<std::filesystem::path> files;
  if (std::filesystem::is_directory(argv[1])) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
      files.push_back(entry.path());
    }
  } else {
    files.emplace_back(argv[1]);
  }
  std::sort(files.begin(), files.end());
  for (const auto& file : files) {
    // The last name printed is that of the input that ended the process.
    std::printf("%s\n", file.filename().c_str());
    std::fflush(stdout);
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    if (!stream) {
      std::fprintf(stderr, "cannot read %s\n", file.c_str());
      return 1;
    }
    // In a block of its own, so that a read past the end is detected.
    const std::vector<uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  std::printf("%zu inputs\n", files.size());
  return files.empty() ? 1 : 0;
}
