#include "util/thread.h"

#include <algorithm>
#include <new>
#include <system_error>
#include <utility>

#include "util/lock_within.h"
#include "util/never_destroyed.h"
#include "util/scope_exit.h"
#include "util/signals_blocked.h"

namespace cppu {
namespace {

/// Far more than our deepest call path needs, and little enough for a process that locks its memory.
constexpr std::size_t kStackSize = 1024UL * 1024UL;

class StackSize {
 public:
  StackSize() {
    pthread_attr_init(&attributes_);
    pthread_attr_setstacksize(&attributes_, kStackSize);
  }
  StackSize(const StackSize&) = delete;
  StackSize& operator=(const StackSize&) = delete;
  ~StackSize() { pthread_attr_destroy(&attributes_); }
  [[nodiscard]] const pthread_attr_t* get() const { return &attributes_; }

 private:
  pthread_attr_t attributes_{};
};

}  // namespace

/// One thread, from its start until it is joined. All but `name` is guarded by the mutex of Threads.
struct Thread::Record {
  const char* name;
  std::shared_ptr<Worker> worker;  ///< null once the thread has ended
  pthread_t id{};
  bool stopped = false;   ///< by endAll()
  bool released = false;  ///< its Thread is gone
  pthread_t releasedBy{};
  bool ended = false;  ///< the worker is released; a join returns at once
};

/// Whether the calling thread is that of the record. The system may have reused the id of an ended thread.
bool Threads::IsCurrent(const Thread::Record& record) {
  return !record.ended && ::pthread_equal(record.id, ::pthread_self()) != 0;
}

Thread::Thread(const char* name, std::shared_ptr<Worker> worker)
    : record_(std::make_shared<Record>(Record{name, std::move(worker)})) {
  Threads::all().start(record_);
}

/// The thread that was held before goes on; Threads joins it.
Thread& Thread::operator=(Thread&& other) noexcept {
  release();
  record_ = std::move(other.record_);
  return *this;
}

void Thread::join() {
  if (record_) Threads::all().join(record_);
}

void Thread::release() noexcept {
  if (!record_) return;
  {
    const std::lock_guard lock(Threads::all().mutex_);
    record_->released = true;
    record_->releasedBy = ::pthread_self();
  }
  record_.reset();
  Threads::all().reap();
}

void* Thread::runRecord(void* argument) {
  auto& record = *static_cast<Record*>(argument);  // listed by Threads until it is joined
  const ScopeExit finish([&] { Threads::all().finish(record); });
  ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  ::pthread_setname_np(::pthread_self(), record.name);
  record.worker->run();
  return nullptr;
}

Threads& Threads::all() {
  static NeverDestroyed<Threads> threads;
  return threads.value;
}

void Threads::start(const RecordPtr& record) {
  // Blocked here rather than by the new thread, which could be hit before it gets that far.
  const AllSignalsBlocked inherited;
  const StackSize stack;
  reap();
  // Held across the creation: fork and endAll() find the thread either listed or not started.
  const std::lock_guard lock(mutex_);
  if (closed_)
    throw std::system_error(std::make_error_code(std::errc::operation_canceled), "cannot start a thread");
  records_.push_back(record);
  const int error = ::pthread_create(&record->id, stack.get(), &Thread::runRecord, record.get());
  if (error == 0) return;
  records_.pop_back();
  throw std::system_error(error, std::generic_category(), "cannot start a thread");
}

/// On the ending thread: once it is joined, everything that its worker held has been released.
void Threads::finish(Thread::Record& record) noexcept {
  std::shared_ptr<Worker> worker;
  {
    const std::lock_guard lock(mutex_);
    worker.swap(record.worker);
  }
  // Without the lock: this may destroy a channel, which takes locks of its own.
  worker.reset();
  reap();  // so that at most one ended thread is left to join
  const std::lock_guard lock(mutex_);
  record.ended = true;
  ended_.notify_all();
}

void Threads::join(const RecordPtr& record) {
  std::unique_lock lock(mutex_);
  if (IsCurrent(*record)) return;
  // Waiting for the flag instead of in pthread_join, so that several threads may wait for the same one.
  ended_.wait(lock, [&] { return record->ended; });
  const auto listed = std::ranges::find(records_, record);
  if (listed == records_.end()) return;  // another thread joins it
  records_.erase(listed);
  lock.unlock();
  ::pthread_join(record->id, nullptr);
}

void Threads::joinReleased() {
  const auto self = ::pthread_self();
  const auto isMine = [self](const RecordPtr& record) {
    return record->released && ::pthread_equal(record->releasedBy, self) != 0 && !IsCurrent(*record);
  };
  const auto next = [&]() -> RecordPtr {
    const std::lock_guard lock(mutex_);
    const auto found = std::ranges::find_if(records_, isMine);
    return found != records_.end() ? *found : nullptr;
  };
  while (const auto record = next()) join(record);
}

void Threads::reap() noexcept {
  std::unique_lock lock(mutex_);
  for (auto next = records_.begin(); next != records_.end();) {
    if (!(*next)->ended || !(*next)->released) {
      ++next;
      continue;
    }
    std::list<RecordPtr> taken;
    taken.splice(taken.end(), records_, next);
    // Without the lock: an ended thread may need another moment to exit.
    lock.unlock();
    ::pthread_join(taken.front()->id, nullptr);
    taken.clear();
    lock.lock();
    next = records_.begin();  // the list may have changed
  }
}

std::shared_ptr<Worker> Threads::takeUnstopped() {
  const std::lock_guard lock(mutex_);
  for (const auto& record : records_) {
    if (record->worker && !std::exchange(record->stopped, true)) return record->worker;
  }
  return {};
}

bool Threads::endAll(std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  auto lock = LockWithin(mutex_, deadline);
  if (!lock) return false;
  closed_ = true;
  lock.unlock();
  // Without the lock: stop() takes locks of its own.
  while (const auto worker = takeUnstopped()) worker->stop();
  lock.lock();
  const auto isDone = [](const RecordPtr& record) { return record->ended || IsCurrent(*record); };
  ended_.wait_until(lock, deadline, [&] { return std::ranges::all_of(records_, isDone); });
  // Ended threads whose Thread still exists are joined as well: nobody may come back to them after an unload.
  for (auto& record : records_) record->released = record->released || record->ended;
  lock.unlock();
  reap();
  lock.lock();
  return records_.empty();
}

void Threads::reopen() {
  const std::lock_guard lock(mutex_);
  closed_ = false;
}

void Threads::afterForkInChild() noexcept {
  for (const auto& record : all().records_) {
    if (record->worker) record->worker->abandon();
  }
  // Not destroyed: releasing the workers would take locks whose holders do not exist in the child.
  ::new (&all()) Threads;
}

}  // namespace cppu
