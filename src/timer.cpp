#include "common/timer.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <limits>
#include <utility>

#include "platform/platform.h"

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

// An expiry has changed, perhaps that of a queued timer: the next stop puts the queue in order.
// NOLINTNEXTLINE(*-non-const-global-variables): a timer does not make the manager to say so
std::atomic<bool> orderMayBeWrong{false};

// Taken before the manager's lock by each pass and by Shutdown(). A pass that waits for the lock
// has the turn, so Shutdown() never joins the timer thread while that waits for the lock.
// NOLINTNEXTLINE(*-non-const-global-variables): not in the manager, whose layout stays
std::mutex passTurn;

// The thread inside TimerManager::Add(), where an allocation may run the host's code, even exit().
// NOLINTNEXTLINE(*-non-const-global-variables): likewise
std::atomic<std::thread::id> addingThread{};

constexpr int kNotUsed = -1;
// platform::ForkCount() where the manager's lock was first taken, and the timer thread started.
// NOLINTNEXTLINE(*-non-const-global-variables): likewise
std::atomic<int> forkCountOfUse{kNotUsed};

void NoteUse() {
  if (forkCountOfUse.load(std::memory_order_relaxed) != kNotUsed) return;
  int expected = kNotUsed;
  forkCountOfUse.compare_exchange_strong(expected, platform::ForkCount());
}

// Whether the timer thread is gone without having ended, perhaps while it held the lock: the system
// has killed it, or it is a thread of the process that this one was forked from.
bool ThreadIsGone() {
  if (platform::ProcessIsEnding()) return true;
  const int forkCount = forkCountOfUse.load(std::memory_order_relaxed);
  return forkCount != kNotUsed && forkCount != platform::ForkCount();
}

// Notes, under the manager's lock, that this thread is inside TimerManager::Add().
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
    // Ignored by design, also for an empty callback.
    return;
  }
}

// Shuts the manager down at the end of the process.
class TimerManager::EndOfProcess {
 public:
  explicit EndOfProcess(TimerManager* owned) : manager(owned) {}
  EndOfProcess(const EndOfProcess&) = delete;
  EndOfProcess& operator=(const EndOfProcess&) = delete;
  ~EndOfProcess() {
    // exit() was called from inside Add(): this thread keeps the lock, so no timer fires any more,
    // and the timer thread cannot be joined.
    if (addingThread == std::this_thread::get_id()) return;
    if (!ThreadIsGone()) manager->Shutdown();
  }

 private:
  TimerManager* const manager;
};

TimerManager* TimerManager::GetInstance() {
  // Never destroyed: threads that run on while the process ends may use it to the last.
  // NOLINTNEXTLINE(*-owning-memory,*-non-const-global-variables): as said
  static auto* const instance = new TimerManager;
  static const EndOfProcess end(instance);
  return instance;
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): a member, by interface
unsigned long long TimerManager::GetCurrentMillisecs() const {
  return static_cast<unsigned long long>(platform::WallClockTicks() / kTicksPerMillisecond);
}

void TimerManager::AddTimer(std::shared_ptr<Timer> timer) {
  bool queued = false;
  Add(std::move(timer), queued);
}

// Sets `queued` once the timer is in the queue: what fails after that is the start of the thread.
void TimerManager::Add(std::shared_ptr<Timer> timer, bool& queued) {
  const bool canFire = timer != nullptr && timer->GetTimeout() != 0;
  if (canFire) platform::PinLibrary();  // for the timer thread; never under a lock
  NoteUse();
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  const Adding adding;
  if (ended) return;
  if (canFire) {
    Arm(timer.get(), GetCurrentMillisecs());
    // A slot is left for the repeating timer that may be firing: it must come back without memory.
    if (queue.capacity() < queue.size() + 2) queue.reserve(2 * queue.size() + 2);
    Push(std::move(timer));
    queued = true;
  }
  if (!queue.empty() && thread == nullptr) StartThread();
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as the interface has it
void TimerManager::RemoveTimer(std::shared_ptr<Timer> timer) {
  NoteUse();
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  if (timer == nullptr) return;
  while (timer->entries > 0) TakeOut(PositionOf(timer));
  if (orderMayBeWrong) RestoreOrder();
}

// As RemoveTimer(). The timer's action may have started it again while Stop() waited for the lock.
void TimerManager::Remove(const std::shared_ptr<Timer>& timer) {
  NoteUse();
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  if (timer->entries > 0) timer->SetState(false);
  RemoveTimer(timer);
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as the interface has it
void TimerManager::ResetTimer(std::shared_ptr<Timer> timer) {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  if (timer == nullptr || timer->entries == 0) return;
  Arm(timer.get(), GetCurrentMillisecs());
  RestoreOrder();
}

// Sets the expiry, which all entries of a timer share.
void TimerManager::Arm(Timer* timer, unsigned long long now) {
  timer->expire.store(AddSaturating(now, timer->GetTimeout()), std::memory_order_relaxed);
  if (timer->entries > 0) orderMayBeWrong = true;
}

void TimerManager::Place(size_t position, std::shared_ptr<Timer> timer) {
  timer->position = position;
  queue[position] = std::move(timer);
}

// Moves the entry at `position` towards the front until none above it expires later. Timers of
// equal expiry come out in no defined order.
void TimerManager::SiftUp(size_t position) {
  std::shared_ptr<Timer> timer = std::move(queue[position]);
  const unsigned long long expire = timer->GetExpire();
  while (position > 0) {
    const size_t parent = (position - 1) / 2;
    if (queue[parent]->GetExpire() <= expire) break;
    Place(position, std::move(queue[parent]));
    position = parent;
  }
  Place(position, std::move(timer));
}

// Moves the entry at `position` away from the front until none below it expires earlier.
void TimerManager::SiftDown(size_t position) {
  std::shared_ptr<Timer> timer = std::move(queue[position]);
  const unsigned long long expire = timer->GetExpire();
  for (size_t child = 2 * position + 1; child < queue.size(); child = 2 * position + 1) {
    const size_t other = child + 1;
    if (other < queue.size() && queue[other]->GetExpire() < queue[child]->GetExpire())
      child = other;
    if (queue[child]->GetExpire() >= expire) break;
    Place(position, std::move(queue[child]));
    position = child;
  }
  Place(position, std::move(timer));
}

void TimerManager::Push(std::shared_ptr<Timer> timer) {
  queue.push_back(std::move(timer));
  ++queue.back()->entries;
  SiftUp(queue.size() - 1);
}

std::shared_ptr<Timer> TimerManager::TakeOut(size_t position) {
  std::shared_ptr<Timer> timer = std::move(queue[position]);
  --timer->entries;
  std::shared_ptr<Timer> last = std::move(queue.back());
  queue.pop_back();
  if (position < queue.size()) {
    Place(position, std::move(last));
    SiftUp(position);
    SiftDown(position);
  }
  return timer;
}

// An entry of `timer`, which has one.
size_t TimerManager::PositionOf(const std::shared_ptr<Timer>& timer) const {
  const size_t position = timer->position;
  if (position < queue.size() && queue[position] == timer) return position;
  return static_cast<size_t>(std::find(queue.begin(), queue.end(), timer) - queue.begin());
}

void TimerManager::RestoreOrder() {
  orderMayBeWrong = false;  // first: an expiry that is set meanwhile counts for the next stop
  for (size_t position = queue.size() / 2; position > 0; --position) SiftDown(position - 1);
}

void TimerManager::StartThread() {
  // Its first use may allocate on Windows: better here, where the caller gets the exception.
  const std::unique_lock<std::mutex> firstUse(passTurn, std::try_to_lock);
  running = true;
  thread = std::make_shared<std::thread>(&TimerManager::Run, this);
}

void TimerManager::Run() {
  while (running) {
    CheckTimers();
    // A duration, so on the monotonic clock: a step of the wall clock cannot put the thread, and
    // with it the end of the process, to sleep.
    std::this_thread::sleep_for(kPassPeriod);
  }
}

// One pass: fires all that is due, in the order of expiry, and queues the repeating timers again.
void TimerManager::CheckTimers() {
  std::unique_lock<std::mutex> turn(passTurn);
  if (!running) return;
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  turn.unlock();

  const unsigned long long now = GetCurrentMillisecs();
  while (!queue.empty() && queue.front()->GetExpire() <= now) {
    const std::shared_ptr<Timer> timer = TakeOut(0);
    if (timer->GetLoop()) {
      Arm(timer.get(), now);
      timer->OnTimeout();
      // Whatever the action did: a timer that stopped itself there goes on, deliberately.
      Push(timer);
    } else {
      timer->SetState(false);  // before the action, which may start the timer again
      timer->OnTimeout();
    }
  }
}

void TimerManager::Shutdown() {
  std::unique_lock<std::mutex> turn(passTurn);
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  ended = true;
  running = false;
  turn.unlock();  // the timer thread may be waiting for it, and gives up the pass
  // Out of the queue first, since what a callback owns may stop other timers as it goes. And marked
  // stopped before any is released: whoever lets go of one that is still marked started ends the
  // process, and nobody can stop them in time any more.
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
