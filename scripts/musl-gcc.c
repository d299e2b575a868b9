// SPDX-License-Identifier: MIT
// What gcc's own library, built for glibc, asks of the C library and musl does not have.
#define _GNU_SOURCE
#include <link.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

// Where the unwinder finds the object of a code address. The record is glibc's.
struct dl_find_object {
  unsigned long long flags;
  void* map_start;
  void* map_end;
  struct link_map* link_map;
  void* eh_frame;
#if defined(__i386__)
  void* eh_dbase;
  unsigned int eh_dbase_pad;
#elif defined(__arm__)
  int eh_count;
  unsigned int eh_count_pad;
#endif
  unsigned long long reserved[7];
};

struct search {
  uintptr_t address;
  struct dl_find_object* result;
};

#ifdef __arm__
#define EH_FRAME_SEGMENT PT_ARM_EXIDX
#else
#define EH_FRAME_SEGMENT PT_GNU_EH_FRAME
#endif

static int find_object(struct dl_phdr_info* info, size_t size, void* argument) {
  (void)size;
  struct search* const search = argument;
  uintptr_t start = 0;
  uintptr_t end = 0;
  const ElfW(Phdr)* frames = NULL;
  uintptr_t dynamic = 0;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)* const header = &info->dlpi_phdr[i];
    const uintptr_t from = info->dlpi_addr + header->p_vaddr;
    if (header->p_type == PT_LOAD && search->address >= from &&
        search->address - from < header->p_memsz) {
      start = from;
      end = from + header->p_memsz;
    } else if (header->p_type == EH_FRAME_SEGMENT) {
      frames = header;
    } else if (header->p_type == PT_DYNAMIC) {
      dynamic = from;
    }
  }
  if (end == 0 || frames == NULL) {
    return 0;
  }
  *search->result =
      (struct dl_find_object){.map_start = (void*)start,
                              .map_end = (void*)end,
                              .eh_frame = (void*)(info->dlpi_addr + frames->p_vaddr)};
#if defined(__i386__)
  // Where the dynamic section says that the global offset table is.
  for (const ElfW(Dyn)* entry = (const ElfW(Dyn)*)dynamic;
       entry != NULL && entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag == DT_PLTGOT) {
      search->result->eh_dbase = (void*)entry->d_un.d_ptr;
    }
  }
#elif defined(__arm__)
  search->result->eh_count = (int)(frames->p_memsz / 8);
#endif
  (void)dynamic;
  return 1;
}

__attribute__((visibility("hidden"))) int _dl_find_object(void* address,
                                                          struct dl_find_object* result);
int _dl_find_object(void* address, struct dl_find_object* result) {
  struct search search = {(uintptr_t)address, result};
  return dl_iterate_phdr(find_object, &search) == 0 ? -1 : 0;
}
