#pragma once

namespace cppu {

/// How many forks lie between the process that loaded the library and this one: differs between a process and
/// its child.
unsigned ForkCount() noexcept;

/// To be called in a forked child, once.
void CountFork() noexcept;

/// Ends the calling thread without unwinding its stack.
[[noreturn]] void EndThreadHere() noexcept;

/// Calls back into the application. If the callback forks and returns in the child, or leaves it by
/// pthread_exit, the thread ends right here: everything that the calling frames would use belongs to the
/// parent.
template <class Callback, class... Arguments>
void CallApplication(Callback callback, Arguments... arguments) {
  struct StaysInProcess {
    unsigned process = ForkCount();
    ~StaysInProcess() {
      if (ForkCount() != process) EndThreadHere();
    }
  } const guard;
  callback(arguments...);
}

}  // namespace cppu
