// What the threads of services need to end their own service.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_THREAD_OWN_THREAD_H
#define GROUNDWORK_THREAD_OWN_THREAD_H

#include <groundwork/thread.h>

namespace groundwork {

// True when `thread` is the handle of the calling thread.
bool is_own_thread(const GThread* thread);

// Frees the handle of the calling thread. As nobody can wait for it any more, the thread's
// resources are released when it ends.
void free_own_thread(GThread* thread);

}  // namespace groundwork

#endif
