// What the threads of services need: ending their own service, and being cancelled.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_THREAD_OWN_THREAD_H
#define GROUNDWORK_THREAD_OWN_THREAD_H

#include <groundwork/thread.h>

// For a function that a cancelled thread may leave in a system call: the address sanitizer
// would go on guarding the locals of its frame.
#define LEFT_BY_CANCELLATION [[gnu::no_sanitize_address]]

namespace groundwork {

// True when `thread` is the handle of the calling thread.
bool is_own_thread(const GThread* thread);

// Frees the handle of the calling thread. As nobody can wait for it any more, the thread's
// resources are released when it ends.
void free_own_thread(GThread* thread);

}  // namespace groundwork

#endif
