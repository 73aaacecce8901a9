#include "api/library.h"

#include <chrono>

#include "util/never_destroyed.h"
#include "util/retired_threads.h"

namespace qvio {
namespace {

/// A closing channel takes at most a second (a send to a stalled peer); a callback that hangs must not keep
/// the process from ending.
constexpr std::chrono::seconds kPatienceAtUnload{2};

constinit cppu::NeverDestroyed<Library> library;

[[gnu::destructor]] void Unload() {
  TheLibrary().handles.clear();
  cppu::Retired().joinAll(kPatienceAtUnload);
}

}  // namespace

Library& TheLibrary() { return library.value; }

}  // namespace qvio
