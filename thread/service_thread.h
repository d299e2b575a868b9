// What a service needs of its thread: to end on it, to wait for it, to do without it after
// a fork.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_THREAD_SERVICE_THREAD_H
#define GROUNDWORK_THREAD_SERVICE_THREAD_H

#include <groundwork/thread.h>

namespace groundwork {

// True when `thread` is the handle of the calling thread.
bool is_own_thread(const GThread* thread);

// Frees the handle of the calling thread. As nobody can wait for it any more, the thread's
// resources are released when it ends.
void free_own_thread(GThread* thread);

// Waits for the end of a thread and keeps the handle. A cancellation point.
void join_thread(GThread* thread);

// For a child of fork(), which has none of the parent's threads but the one that forked:
// from now on the handle is one of a thread that does not exist, and there is nobody to
// cancel or wait for.
void forget_thread(GThread* thread);

}  // namespace groundwork

#endif
