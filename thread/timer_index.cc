// SPDX-License-Identifier: MIT

#include "thread/timer_index.h"

#include <cstdlib>

#include "thread/timer_service.h"

using namespace groundwork;

namespace {

constexpr size_t kWalked = 64;  // up to this many timers the list is walked

}  // namespace

size_t TimerIndex::home_of(const GTimerEntry* timer) const {
  // Alignment makes the low bits of addresses equal; the multiplication mixes upwards.
  const auto address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(timer) >> 3);
  const uint32_t mixed = address * 0x9e3779b1u;
  return (mixed ^ mixed >> 15) & mask_;
}

// Returns the timer's slot, or the free slot where it would be.
TimerIndex::Slot& TimerIndex::slot_of(const GTimerEntry* timer) const {
  size_t at = home_of(timer);
  while (slots_[at].timer != nullptr && slots_[at].timer != timer) at = (at + 1) & mask_;
  return slots_[at];
}

bool TimerIndex::build(GTimerEntry* first, size_t count) {
  clear();
  size_t size = 4 * kWalked;
  while (size < 2 * count) size *= 2;
  slots_ = static_cast<Slot*>(std::calloc(size, sizeof(Slot)));
  if (slots_ == nullptr) return false;
  mask_ = size - 1;
  GTimerEntry* before = nullptr;
  for (GTimerEntry* timer = first; timer != nullptr; timer = timer->next) {
    slot_of(timer) = {timer, before};
    before = timer;
  }
  return true;
}

void TimerIndex::note_added(GTimerEntry* first, size_t count) {
  if (count <= kWalked && slots_ == nullptr) return;
  // At most three quarters full.
  if (slots_ == nullptr || count > mask_ / 4 * 3) {
    build(first, count);
    return;
  }
  slot_of(first) = {first, nullptr};
  if (first->next != nullptr) slot_of(first->next).before = first;
}

void TimerIndex::note_removed(const GTimerEntry* timer, GTimerEntry* before,
                              GTimerEntry* after) {
  if (slots_ == nullptr) return;
  if (after != nullptr) slot_of(after).before = before;
  if (before == nullptr && after == nullptr) return clear();
  // Moves up later timers that a probe would no longer reach.
  size_t free = static_cast<size_t>(&slot_of(timer) - slots_);
  for (size_t at = (free + 1) & mask_; slots_[at].timer != nullptr; at = (at + 1) & mask_) {
    const size_t home = home_of(slots_[at].timer);
    if (((at - home) & mask_) < ((at - free) & mask_)) continue;
    slots_[free] = slots_[at];
    free = at;
  }
  slots_[free] = {};
}

bool TimerIndex::find(const GTimerEntry* id, GTimerEntry** before) const {
  if (id == nullptr) return false;
  const Slot& slot = slot_of(id);
  *before = slot.before;
  return slot.timer != nullptr;
}

void TimerIndex::clear() {
  std::free(slots_);
  slots_ = nullptr;
}
