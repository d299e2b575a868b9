// SPDX-License-Identifier: MIT

#include "faults/library_symbols.h"

#include <cstddef>
#include <cstring>
#include <fstream>
#include <iterator>

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <groundwork/log.h>

namespace faults {
namespace {

template <typename T>
const T* at(const std::string& image, size_t offset) {
  return reinterpret_cast<const T*>(image.data() + offset);
}

std::string library_image() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(g_log), &info) == 0) return {};
  std::ifstream file(info.dli_fname, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

std::vector<std::string> library_imports() {
  const std::string image = library_image();
  std::vector<std::string> names;
  if (image.size() < sizeof(ElfW(Ehdr))) return names;
  const auto* const header = at<ElfW(Ehdr)>(image, 0);
  const auto* const sections = at<ElfW(Shdr)>(image, header->e_shoff);
  for (size_t i = 0; i < header->e_shnum; ++i) {
    const ElfW(Shdr)& table = sections[i];
    if (table.sh_type != SHT_DYNSYM) continue;
    const char* const text = at<char>(image, sections[table.sh_link].sh_offset);
    const auto* const symbols = at<ElfW(Sym)>(image, table.sh_offset);
    for (size_t s = 1; s < table.sh_size / sizeof(ElfW(Sym)); ++s) {
      if (symbols[s].st_shndx == SHN_UNDEF) names.emplace_back(text + symbols[s].st_name);
    }
  }
  return names;
}

}  // namespace faults
