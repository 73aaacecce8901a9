#include "api/library.h"

#include <pthread.h>

#include <chrono>
#include <new>

#include "io/ftdi/usb.h"
#include "nd/discovery.h"
#include "util/fork.h"
#include "util/lock_within.h"
#include "util/never_destroyed.h"
#include "util/thread.h"

namespace qvio {
namespace {

/// A closing channel needs a moment; a callback that hangs must not keep the process from ending.
constexpr std::chrono::seconds kPatienceAtUnload{2};

constinit cppu::NeverDestroyed<Library> library;

/// Ends the threads, those of open channels and watched interfaces too, and releases what they used. What a
/// thread that is left still uses stays: it is stuck in a callback, or it is the calling one.
void EndThreads() {
  const auto deadline = std::chrono::steady_clock::now() + kPatienceAtUnload;
  if (!cppu::Threads::all().endAll(kPatienceAtUnload)) return;
  const auto lock = cppu::LockWithin(TheLibrary().globalMutex, deadline);
  if (!lock) return;
  TheLibrary().handles.clear();
  quorvind::ForgetDiscovery(deadline);
}

/// A forked child starts afresh. What the parent's objects hold is neither used nor released here: their
/// locks may be held by threads that do not exist in the child, and their devices are the parent's.
void StartAfreshInChild() {
  cppu::CountFork();
  cppu::Threads::afterForkInChild();
  ::new (&library.value) Library;
  quorvind::RenewDiscovery();
  RenewUsb();
}

[[gnu::constructor]] void Load() {
  ::pthread_atfork(cppu::Threads::beforeFork, cppu::Threads::afterForkInParent, StartAfreshInChild);
  TheUsb().driver.onLibraryLoad();
}

[[gnu::destructor]] void Unload() {
  EndThreads();
  if (cppu::ForkCount() == 0)
    TheUsb().driver.onLibraryUnload();  // in a child the driver's state is the parent's
}

}  // namespace

Library& TheLibrary() { return library.value; }

}  // namespace qvio
