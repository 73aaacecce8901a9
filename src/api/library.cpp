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

/// Closing channels need a moment, but a callback that hangs must not keep the process from ending.
constexpr std::chrono::seconds kPatienceAtUnload{2};

constinit cppu::NeverDestroyed<Library> library;

/// Ends the threads, those of open channels and watched interfaces too, and releases their resources, except
/// those of threads that could not be ended: the calling one, and any that is stuck in a callback.
void EndThreads() {
  const auto deadline = std::chrono::steady_clock::now() + kPatienceAtUnload;
  // With a thread left, the table and the state of discovery may be in use: leaking them is the lesser harm.
  if (!cppu::Threads::all().endAll(kPatienceAtUnload)) return;
  const auto lock = cppu::LockWithin(TheLibrary().globalMutex, deadline);
  if (!lock) return;
  TheLibrary().handles.clear();
  quorvind::ForgetDiscovery(deadline);
}

/// A forked child starts afresh and neither uses nor releases what the parent's objects hold: their locks may
/// be held by threads that do not exist in the child, and their devices belong to the parent.
void StartAfreshInChild() {
  cppu::CountFork();
  cppu::Threads::afterForkInChild();
  ::new (&library.value) Library;
  quorvind::RenewDiscovery();
  RenewUsb();
}

/// At load, so that the first call of an application does not search the disk for a driver.
[[gnu::constructor]] void Load() {
  ::pthread_atfork(cppu::Threads::beforeFork, cppu::Threads::afterForkInParent, StartAfreshInChild);
  TheUsb().driver.onLibraryLoad();
}

[[gnu::destructor]] void Unload() {
  EndThreads();
  if (cppu::ForkCount() == 0)
    TheUsb().driver.onLibraryUnload();  // in a child the driver's state belongs to the parent
}

}  // namespace

Library& TheLibrary() { return library.value; }

}  // namespace qvio
