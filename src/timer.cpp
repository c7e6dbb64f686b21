#include "common/timer.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <limits>
#include <utility>

#include "platform/platform.h"
#include "timer_heap.h"

namespace component {

namespace platform = tarsio::platform;

namespace {

constexpr auto kPassPeriod = std::chrono::milliseconds(5);
constexpr int64_t kTicksPerMillisecond = 10000;

// The largest time if the sum would wrap: a timer that expires then never fires.
unsigned long long AddSaturating(unsigned long long now, unsigned long long timeout) {
  constexpr unsigned long long kNever = std::numeric_limits<unsigned long long>::max();
  return now + std::min(timeout, kNever - now);
}

class NotOwned : public std::bad_weak_ptr {
 public:
  const char* what() const noexcept override {
    return "component::Timer: no shared_ptr owns the timer; create it with std::make_shared, and "
           "stop it before the last owner goes";
  }
};

std::shared_ptr<Timer> Owned(Timer* timer) {
  try {
    return timer->shared_from_this();
  } catch (const std::bad_weak_ptr&) {
    throw NotOwned();
  }
}

// Set when an expiry changes, perhaps that of a queued timer. The next stop restores the order of
// the queue.
// NOLINTNEXTLINE(*-non-const-global-variables): SetExpire() need not create the manager
std::atomic<bool> orderMayBeWrong{false};

// Locked before the manager's mutex by each pass and by Shutdown(). A pass holds it while it waits
// for the manager's mutex, so Shutdown() never joins a thread that waits for that mutex.
// NOLINTNEXTLINE(*-non-const-global-variables): not a member, to keep the manager's layout
std::mutex passTurn;

// The thread in TimerManager::Add(), where an allocation may run the host's code, even exit().
// NOLINTNEXTLINE(*-non-const-global-variables): likewise
std::atomic<std::thread::id> addingThread{};

constexpr int kNotUsed = -1;
// platform::ForkCount() when timers were first used.
// NOLINTNEXTLINE(*-non-const-global-variables): likewise
std::atomic<int> forkCountOfUse{kNotUsed};

void NoteUse() {
  if (forkCountOfUse.load(std::memory_order_relaxed) != kNotUsed) return;
  int expected = kNotUsed;
  forkCountOfUse.compare_exchange_strong(expected, platform::ForkCount());
}

// Whether the timer thread has disappeared without ending, perhaps while it held the lock: the
// system killed it at process exit, or this process was forked.
bool ThreadIsGone() {
  if (platform::ProcessIsEnding()) return true;
  const int forkCount = forkCountOfUse.load(std::memory_order_relaxed);
  return forkCount != kNotUsed && forkCount != platform::ForkCount();
}

// Marks this thread as the one in TimerManager::Add(). Requires the manager's lock.
class Adding {
 public:
  Adding() : before(addingThread.load(std::memory_order_relaxed)) {
    addingThread.store(std::this_thread::get_id(), std::memory_order_relaxed);
  }
  Adding(const Adding&) = delete;
  Adding& operator=(const Adding&) = delete;
  ~Adding() { addingThread.store(before, std::memory_order_relaxed); }

 private:
  const std::thread::id before;
};

}  // namespace

Timer::Timer(unsigned long long timeoutMs, bool repeating)
    : timeout(timeoutMs), loop(repeating), state(false) {}

// NOLINTNEXTLINE(bugprone-exception-escape): ends the process if the timer is marked started
Timer::~Timer() {
  if (state.load(std::memory_order_relaxed) && !ThreadIsGone()) Stop();
}

void Timer::Start() {
  NoteUse();  // first, since another thread may fork at any moment
  // Marked first, so a timer that no shared pointer owns stays marked (by design).
  if (state.exchange(true, std::memory_order_relaxed)) return;
  std::shared_ptr<Timer> self = Owned(this);
  if (ThreadIsGone()) return;
  bool queued = false;
  try {
    TimerManager::GetInstance()->Add(std::move(self), queued);
  } catch (...) {
    if (!queued) SetState(false);
    throw;
  }
}

void Timer::Stop() {
  if (!state.exchange(false, std::memory_order_relaxed)) return;
  const std::shared_ptr<Timer> self = Owned(this);
  if (!ThreadIsGone()) TimerManager::GetInstance()->Remove(self);
}

void Timer::SetExpire(unsigned long long newExpire) {
  expire.store(newExpire, std::memory_order_relaxed);
  orderMayBeWrong = true;
}

unsigned long long Timer::GetExpire() { return expire.load(std::memory_order_relaxed); }

unsigned long long Timer::GetTimeout() const { return timeout; }
bool Timer::GetLoop() const { return loop; }

void Timer::SetState(bool started) { state.store(started, std::memory_order_relaxed); }

TsTimer::TsTimer(unsigned long long timeoutMs, bool repeating) : Timer(timeoutMs, repeating) {}

TsTimer::~TsTimer() = default;

void TsTimer::Init(std::function<void()> newCallback) { callback = std::move(newCallback); }

void TsTimer::OnTimeout() {
  try {
    callback();
  } catch (const std::exception&) {
    // Ignored (by design), also for an empty callback.
    return;
  }
}

// Shuts the manager down when statics are destroyed.
class TimerManager::ShutdownAtExit {
 public:
  explicit ShutdownAtExit(TimerManager* owned) : manager(owned) {}
  ShutdownAtExit(const ShutdownAtExit&) = delete;
  ShutdownAtExit& operator=(const ShutdownAtExit&) = delete;
  ~ShutdownAtExit() {
    // exit() was called in Add(). This thread holds the lock, so no timer fires any more and the
    // timer thread cannot be joined.
    if (addingThread == std::this_thread::get_id()) return;
    if (!ThreadIsGone()) manager->Shutdown();
  }

 private:
  TimerManager* const manager;
};

TimerManager* TimerManager::GetInstance() {
  // Never destroyed, since threads may use it until the process has ended.
  // NOLINTNEXTLINE(*-owning-memory,*-non-const-global-variables): see above
  static auto* const instance = new TimerManager;
  static const ShutdownAtExit end(instance);
  return instance;
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): the interface has a member
unsigned long long TimerManager::GetCurrentMillisecs() const {
  return static_cast<unsigned long long>(platform::WallClockTicks() / kTicksPerMillisecond);
}

void TimerManager::AddTimer(std::shared_ptr<Timer> timer) {
  bool queued = false;
  NoteUse();
  Add(std::move(timer), queued);
}

// Sets `queued` once the timer is queued; only starting the thread can fail after that.
void TimerManager::Add(std::shared_ptr<Timer> timer, bool& queued) {
  const bool canFire = timer != nullptr && timer->GetTimeout() != 0;
  if (canFire) platform::PinLibrary();  // for the timer thread; never under a lock
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  const Adding adding;
  if (ended) return;
  if (canFire) {
    Arm(timer.get(), GetCurrentMillisecs());
    // Keep one slot for a repeating timer that is firing: it is queued again without allocating.
    if (queue.capacity() < queue.size() + 2) queue.reserve(2 * queue.size() + 2);
    Heap(queue).Push(std::move(timer));
    queued = true;
  }
  if (!queue.empty() && thread == nullptr) StartThread();
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as the interface requires
void TimerManager::RemoveTimer(std::shared_ptr<Timer> timer) {
  NoteUse();
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  if (timer == nullptr) return;
  Heap(queue).Remove(timer);
  if (orderMayBeWrong) RestoreOrder();
}

// Like RemoveTimer(). The callback may have started the timer again while Stop() waited for the
// lock.
void TimerManager::Remove(const std::shared_ptr<Timer>& timer) {
  NoteUse();
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  if (timer->entries > 0) timer->SetState(false);
  RemoveTimer(timer);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as the interface requires
void TimerManager::ResetTimer(std::shared_ptr<Timer> timer) {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  if (timer == nullptr || timer->entries == 0) return;
  Arm(timer.get(), GetCurrentMillisecs());
  RestoreOrder();
}

// Sets the expiry, which all entries of the timer share.
void TimerManager::Arm(Timer* timer, unsigned long long now) {
  timer->expire.store(AddSaturating(now, timer->GetTimeout()), std::memory_order_relaxed);
  if (timer->entries > 0) orderMayBeWrong = true;
}

void TimerManager::RestoreOrder() {
  orderMayBeWrong = false;  // first: an expiry that is set meanwhile counts for the next stop
  Heap(queue).RestoreOrder();
}

void TimerManager::StartThread() {
  // On Windows the first use of a lock may allocate. Do it here, where the caller gets the
  // exception.
  const std::unique_lock<std::mutex> firstUse(passTurn, std::try_to_lock);
  running = true;
  thread = std::make_shared<std::thread>(&TimerManager::Run, this);
}

void TimerManager::Run() {
  while (running) {
    CheckTimers();
    // Uses the monotonic clock, so that a step of the wall clock does not delay the thread, and
    // with it process exit.
    std::this_thread::sleep_for(kPassPeriod);
  }
}

// One pass: fires all timers that are due, in order of expiry, and queues the repeating ones again.
void TimerManager::CheckTimers() {
  std::unique_lock<std::mutex> turn(passTurn);
  if (!running) return;
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  turn.unlock();

  const unsigned long long now = GetCurrentMillisecs();
  while (!queue.empty() && queue.front()->GetExpire() <= now) {
    const std::shared_ptr<Timer> timer = Heap(queue).PopFront();
    if (timer->GetLoop()) {
      Arm(timer.get(), now);
      timer->OnTimeout();
      // Even if the callback stopped the timer (by design).
      Heap(queue).Push(timer);
    } else {
      timer->SetState(false);  // first, since the callback may start the timer again
      timer->OnTimeout();
    }
  }
}

void TimerManager::Shutdown() {
  std::unique_lock<std::mutex> turn(passTurn);
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  ended = true;
  running = false;
  turn.unlock();  // the timer thread may be waiting for it; it then skips the pass
  // Empty the queue first: releasing a callback may stop other timers. Mark all timers stopped
  // before releasing any: destroying a started timer terminates the process.
  std::vector<std::shared_ptr<Timer>> released;
  released.swap(queue);
  for (const std::shared_ptr<Timer>& timer : released) {
    timer->entries = 0;
    timer->SetState(false);
  }
  released.clear();
  if (thread != nullptr && thread->joinable()) thread->join();
  thread.reset();
}

}  // namespace component
