// Files mapped into memory. A map remembers the requested region; to move, it releases its
// mapping and maps again.
//
// SPDX-License-Identifier: MIT

#include <groundwork/file_map.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include "core/cancellation.h"
#include "core/check.h"
#include "sys/file_handle.h"

using namespace groundwork;

struct GFileMap {
  GFile* file;
  void* addr;      // null before the first mapping
  int64_t offset;  // as requested; not checked
  int64_t length;  // as requested; the low 32 bits are mapped
  int borrowed;    // 1: the caller closes the file
};
static_assert(offsetof(GFileMap, addr) == sizeof(void*) &&
              offsetof(GFileMap, offset) == 2 * sizeof(void*) &&
              offsetof(GFileMap, length) == 2 * sizeof(void*) + 8 &&
              offsetof(GFileMap, borrowed) == 2 * sizeof(void*) + 16);

namespace {

constexpr char kSource[] = "g_file";

size_t mapped_size(const GFileMap& map) {
  return static_cast<uint32_t>(map.length);
}

int protection_of(int mode) {
  switch (mode) {
    case 0:
      return PROT_READ;
    case 1:
      return PROT_WRITE;
    default:
      return PROT_READ | PROT_WRITE;
  }
}

GFileMap* new_map(GFile* file) {
  auto* const map = static_cast<GFileMap*>(std::calloc(1, sizeof(GFileMap)));
  if (map == nullptr) [[unlikely]] {
    g_log(G_LOG_WARNING, kSource, __LINE__, "failed to allocate %u bytes.",
          static_cast<unsigned>(sizeof(GFileMap)));
    return nullptr;
  }
  map->file = file;
  return map;
}

// Kept: the value of the descriptor is used as the length. Programs unmap the pages after
// the first themselves, or go on using them.
void release_mapping(const GFileMap& map) {
  if (munmap(map.addr, static_cast<size_t>(map.file->descriptor)) != 0) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't unmap file - %s", std::strerror(errno));
  }
}

}  // namespace

extern "C" GFileMap* g_file_map(const char* filename, int64_t offset, int64_t length,
                                int mode, void** addr) {
  CHECK_ARG(filename != NULL, nullptr);
  // Kept: the file is opened write-only for every mode but 0, which the system then refuses
  // to map.
  GFile* const file = g_file_open(filename, mode == 0 ? 0 : 1);
  if (file == nullptr) {
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't open '%s' for file map.", filename);
    return nullptr;
  }
  GFileMap* map = nullptr;
  const auto close = [](void* opened) { g_file_close(static_cast<GFile*>(opened)); };
  with_cleanup(close, file, [&] {  // a message may end the thread
    map = g_file_remap(nullptr, file, offset, length, mode, addr);
  });
  if (map == nullptr) {
    g_file_close(file);
    return nullptr;
  }
  map->borrowed = 0;
  return map;
}

extern "C" GFileMap* g_file_remap(GFileMap* map, GFile* file, int64_t offset,
                                  int64_t length, int mode, void** addr) {
  CHECK_ARG(file != NULL, nullptr);
  if (map == nullptr) {
    map = new_map(file);
    if (map == nullptr) return nullptr;
  }
  // Also true of a new map of no bytes at offset 0, which gets no mapping.
  if (map->offset == offset && map->length == length) return map;

  map->offset = offset;
  map->length = length;
  map->borrowed = 1;  // kept: once a map moves, the caller owns its file
  release_mapping(*map);
  void* const mapped = mmap(nullptr, mapped_size(*map), protection_of(mode), MAP_SHARED,
                            map->file->descriptor, offset);
  if (mapped == MAP_FAILED) {
    const int error = errno;
    std::free(map);  // even the caller's: callers drop their pointer after a failure
    g_log(G_LOG_WARNING, kSource, __LINE__, "can't map file - %s", std::strerror(error));
    return nullptr;
  }
  map->addr = mapped;
  if (addr != nullptr) *addr = mapped;
  return map;
}

extern "C" void g_file_unmap(GFileMap* map) {
  CHECK_ARG(map != NULL);
  release_mapping(*map);
  GFile* const file = map->borrowed == 0 ? map->file : nullptr;
  std::free(map);
  if (file != nullptr) g_file_close(file);
}

extern "C" void* g_file_map_get_addr(GFileMap* map, int64_t* length) {
  CHECK_ARG(map != NULL, nullptr);
  if (length != nullptr) *length = map->length;
  return map->addr;
}

extern "C" int64_t g_file_map_page_size(void) {
  return getpagesize();
}

extern "C" int g_file_map_sync(GFileMap* map) {
  // Kept: callers get the result of g_log() here, not a failure value.
  if (map == NULL) return report_failed_check(kSource, __LINE__, "map != NULL");
  return msync(map->addr, mapped_size(*map), MS_ASYNC | MS_INVALIDATE);
}
