#include "util/fork.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

namespace cppu {
namespace {

std::atomic<unsigned> forks = 0;

}  // namespace

unsigned ForkCount() noexcept { return forks.load(std::memory_order_relaxed); }

/// A count rather than a process id: ids are reused, and getpid is a system call.
void CountFork() noexcept { ++forks; }

void EndThreadHere() noexcept {
  // Not pthread_exit: unwinding would run destructors that take locks whose holders do not exist here. When
  // it was the only thread, the process ends with status 0.
  for (;;) ::syscall(SYS_exit, 0);
}

}  // namespace cppu
