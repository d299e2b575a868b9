// SPDX-License-Identifier: MIT

#include "core/cancellation.h"

#include <cstdlib>

// For builds for size, which have the handler's code once.
LEFT_BY_CANCELLATION void groundwork::call_with_cleanup(void (*work)(void*), void* argument,
                                                        void (*clean_up)(void*),
                                                        void* what) {
  pthread_cleanup_push(clean_up, what);
  work(argument);
  pthread_cleanup_pop(0);
}

void groundwork::free_block(void* block) {
  std::free(block);
}
