// Finds a timer by its id without walking the list.
//
// The list of timers is singly linked, and an id is only compared, since it may be any
// value. So an open-addressing table maps each timer to the one before it in the list. It
// exists only while there are many timers: walking a few is as fast and takes no memory. If
// it cannot be allocated, look-ups walk the list.
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

  // Call it after a timer was added at the head of the list, which now has `count` timers.
  void note_added(GTimerEntry* first, size_t count);

  // Call it after a timer was removed from the list, with the timers that were next to it.
  void note_removed(const GTimerEntry* timer, GTimerEntry* before, GTimerEntry* after);

  // Returns whether there is a timer with this id; if so, sets `before` to the one before
  // it in the list, null for the head.
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
