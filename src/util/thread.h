#pragma once

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>

namespace cppu {

/// The work of one thread of the library. The thread owns a reference to it from start to end.
class Worker {
 public:
  Worker() = default;
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  virtual ~Worker() = default;

  /// The thread's body. Must not throw; only pthread_exit, which a callback of the application may call, may
  /// unwind it.
  virtual void run() = 0;

  /// Asks run() to return soon. Any thread, at any time, even before run() has started or after it has
  /// returned; must not block.
  virtual void stop() noexcept = 0;

  /// Called in a forked child, in which the thread does not exist: closes the child's copies of the
  /// descriptors and touches nothing that is shared with the parent.
  virtual void abandon() noexcept {}
};

/// A thread of the library. It has a name, a stack of 1 MiB, all signals blocked, so that the application's
/// handlers run on the application's threads, and cancellation off. Threads::all() knows it from its start
/// until it is joined, so that a Thread may be destroyed at any time, also on the thread itself.
class Thread {
 public:
  Thread() = default;

  /// Starts the worker. Throws std::system_error when no thread is available; then run() is never called.
  /// @param name  at most 15 characters
  Thread(const char* name, std::shared_ptr<Worker> worker);
  Thread(Thread&&) = default;
  Thread& operator=(Thread&& other) noexcept;
  ~Thread() { release(); }

  /// Waits for the end of the thread. Returns at once when there is none and on the thread itself.
  void join();

 private:
  friend class Threads;
  struct Record;

  static void* runRecord(void* argument);
  void release() noexcept;

  std::shared_ptr<Record> record_;
};

/// The one place that knows every thread of the library: closing without waiting, unloading, exit and fork
/// rely on it. Any thread.
class Threads {
 public:
  /// The one of the process. Never destroyed.
  static Threads& all();

  /// Joins the threads that have ended and whose Thread is gone. Does not wait for a thread that still works.
  void reap() noexcept;

  /// Waits for the threads whose Thread the calling thread has destroyed: they have been stopped. With no
  /// lock held that one of them takes.
  void joinReleased();

  /// Ends all of them for good; no new one can start. Stops every worker and joins the threads, except for
  /// the calling one. A thread that does not end in time, because a callback of the application does not
  /// return, is not waited for. Returns whether all have ended.
  bool endAll(std::chrono::milliseconds patience);

  /// Lets threads start again after endAll().
  void reopen();

  /// For pthread_atfork. The child starts without threads; the workers of the parent's threads are abandoned.
  static void beforeFork() noexcept { all().mutex_.lock(); }
  static void afterForkInParent() noexcept { all().mutex_.unlock(); }
  static void afterForkInChild() noexcept;

 private:
  friend class Thread;
  using RecordPtr = std::shared_ptr<Thread::Record>;

  static bool IsCurrent(const Thread::Record& record);  // caller holds mutex_
  void start(const RecordPtr& record);
  void finish(Thread::Record& record) noexcept;
  void join(const RecordPtr& record);
  std::shared_ptr<Worker> takeUnstopped();

  std::mutex mutex_;  ///< guards what follows and the records; a leaf, held in fork as well
  std::condition_variable ended_;
  std::list<RecordPtr> records_;  ///< the threads that are not joined yet
  bool closed_ = false;           ///< after endAll()
};

}  // namespace cppu
