#include "api/library.h"

#include <chrono>
#include <memory>
#include <thread>
#include <utility>

#include "io/ftdi/usb.h"
#include "nd/discovery.h"
#include "util/never_destroyed.h"
#include "util/retired_threads.h"

namespace qvio {
namespace {

/// A closing channel takes at most a second (a send to a stalled peer); a callback that hangs must not keep
/// the process from ending.
constexpr std::chrono::seconds kPatienceAtUnload{2};

constinit cppu::NeverDestroyed<Library> library;

/// Whether no event callback is running, or none after the given time.
bool BecomesLockable(std::mutex& mutex, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!mutex.try_lock()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  mutex.unlock();
  return true;
}

/// What threads may still use although nobody will ask for it again.
void Keep(std::shared_ptr<void> object) {
  static cppu::NeverDestroyed<std::shared_ptr<void>> kept;
  kept.value = std::move(object);
}

void EndThreads() {
  // An application may end from within its event callback, which holds the global mutex.
  if (TheLibrary().events.isDelivering()) return;
  if (!BecomesLockable(TheLibrary().globalMutex, kPatienceAtUnload)) return;
  TheLibrary().handles.clear();
  auto discovery = quorvind::TakeDiscoveryDown();
  if (!cppu::Retired().joinAll(kPatienceAtUnload)) Keep(std::move(discovery));
}

[[gnu::constructor]] void Load() { TheUsb().driver.onLibraryLoad(); }

[[gnu::destructor]] void Unload() {
  EndThreads();
  TheUsb().driver.onLibraryUnload();
}

}  // namespace

Library& TheLibrary() { return library.value; }

}  // namespace qvio
