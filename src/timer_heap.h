#ifndef TARSIO_COMMON_SRC_TIMER_HEAP_H_
#define TARSIO_COMMON_SRC_TIMER_HEAP_H_

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "common/timer.h"

namespace component {

// A binary heap over the manager's vector, with the earliest expiry at the front. Timers of equal
// expiry are popped in no defined order. A timer may have several entries. Each timer knows the
// position of the entry that was moved last, so removing one among a million need not search.
//
// Timer::SetExpire() may change the expiry of a queued timer, and with it the order; RestoreOrder()
// repairs it.
//
// Requires: the manager's lock.
class TimerManager::Heap {
 public:
  explicit Heap(std::vector<std::shared_ptr<Timer>>& timers) : heap(timers) {}

  void Push(std::shared_ptr<Timer> timer) {
    heap.push_back(std::move(timer));
    ++heap.back()->entries;
    SiftUp(heap.size() - 1);
  }

  std::shared_ptr<Timer> PopFront() { return RemoveAt(0); }

  // Removes every entry of `timer`.
  void Remove(const std::shared_ptr<Timer>& timer) {
    while (timer->entries > 0) RemoveAt(PositionOf(timer));
  }

  void RestoreOrder() {
    for (size_t position = heap.size() / 2; position > 0; --position) SiftDown(position - 1);
  }

 private:
  void Place(size_t position, std::shared_ptr<Timer> timer) {
    timer->position = position;
    heap[position] = std::move(timer);
  }

  // Moves the entry at `position` towards the front until its parent does not expire later.
  void SiftUp(size_t position) {
    std::shared_ptr<Timer> timer = std::move(heap[position]);
    const unsigned long long expire = timer->GetExpire();
    while (position > 0) {
      const size_t parent = (position - 1) / 2;
      if (heap[parent]->GetExpire() <= expire) break;
      Place(position, std::move(heap[parent]));
      position = parent;
    }
    Place(position, std::move(timer));
  }

  // Moves the entry at `position` away from the front until no child expires earlier.
  void SiftDown(size_t position) {
    std::shared_ptr<Timer> timer = std::move(heap[position]);
    const unsigned long long expire = timer->GetExpire();
    for (size_t child = 2 * position + 1; child < heap.size(); child = 2 * position + 1) {
      const size_t other = child + 1;
      if (other < heap.size() && heap[other]->GetExpire() < heap[child]->GetExpire()) child = other;
      if (heap[child]->GetExpire() >= expire) break;
      Place(position, std::move(heap[child]));
      position = child;
    }
    Place(position, std::move(timer));
  }

  std::shared_ptr<Timer> RemoveAt(size_t position) {
    std::shared_ptr<Timer> timer = std::move(heap[position]);
    --timer->entries;
    std::shared_ptr<Timer> last = std::move(heap.back());
    heap.pop_back();
    if (position < heap.size()) {
      Place(position, std::move(last));
      SiftUp(position);
      SiftDown(position);
    }
    return timer;
  }

  // The position of an entry of `timer`, which must have one.
  size_t PositionOf(const std::shared_ptr<Timer>& timer) const {
    const size_t position = timer->position;
    if (position < heap.size() && heap[position] == timer) return position;
    return static_cast<size_t>(std::find(heap.begin(), heap.end(), timer) - heap.begin());
  }

  std::vector<std::shared_ptr<Timer>>& heap;
};

}  // namespace component

#endif  // TARSIO_COMMON_SRC_TIMER_HEAP_H_
