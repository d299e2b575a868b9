// A service's thread: ending the service on it, waiting for it, losing it in a fork.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_THREAD_SERVICE_THREAD_H
#define GROUNDWORK_THREAD_SERVICE_THREAD_H

#include <groundwork/thread.h>

namespace groundwork {

// True when `thread` is the handle of the calling thread.
bool is_own_thread(const GThread* thread);

// Detaches the calling thread and frees its handle.
void free_own_thread(GThread* thread);

// Waits for the end of a thread, but keeps the handle. A cancellation point.
void join_thread(GThread* thread);

// For a child of fork(), which has none of the parent's threads except the one that forked:
// marks the thread as non-existent, so that it is neither cancelled nor waited for.
void forget_thread(GThread* thread);

}  // namespace groundwork

#endif
