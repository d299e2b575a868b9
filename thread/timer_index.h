// Finds a timer by its id without a walk.
//
// The list of timers is singly linked, and an id is only compared, since it may be any
// value. So a table with open addressing holds for each timer the one before it in the
// list. It exists only while there are many timers: a walk over a few is as fast and takes
// no memory. If its memory cannot be allocated, the list is walked.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_THREAD_TIMER_INDEX_H
#define GROUNDWORK_THREAD_TIMER_INDEX_H

#include <cstddef>
#include <cstdint>

struct GTimerEntry;

namespace groundwork {

class TimerIndex {
 public:
  bool exists() const { return slots_ != nullptr; }

  // After a timer became the first of a list, with which that has `count` timers.
  void note_added(GTimerEntry* first, size_t count);

  // After a timer was taken out of a list, with what came before it and what after it.
  void note_removed(const GTimerEntry* timer, GTimerEntry* before, GTimerEntry* after);

  // Whether there is a timer of this id; if so, the one before it in the list, null for
  // none.
  bool find(const GTimerEntry* id, GTimerEntry** before) const;

  void clear();

 private:
  struct Slot {
    const GTimerEntry* timer;  // null: free
    GTimerEntry* before;
  };

  size_t home_of(const GTimerEntry* timer) const;
  Slot& slot_of(const GTimerEntry* timer) const;
  bool build(GTimerEntry* first, size_t count);

  Slot* slots_ = nullptr;
  size_t mask_ = 0;  // number of slots, a power of two, less one
};

}  // namespace groundwork

#endif
