#include "nd/interface_sockets.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "nd/errors.h"
#include "nd/local_addresses.h"
#include "nd/log.h"

namespace quorvind {
namespace {

using namespace std::chrono_literals;
using SharedPair = SocketPairs::value_type;

constexpr auto kCheckPeriod = 3s;

SharedPair Open(const IP4& address, const LocalAddress& local) {
  return std::make_shared<const SocketPair>(
      SocketPair{OpenBroadcast(address, local), OpenMulticast(address, local)});
}

void LogChange(const IP4& address, std::string_view what) {
  LogWarning("Interface " + IP4ToString(address), what);
}

/// Where the addresses cannot be listed, discovery starts with multicast alone, and the next look decides.
LocalAddress FindAtStart(const IP4& address) {
  try {
    return FindLocalAddress(address).value_or(LocalAddress{});  // the system refuses one that is not local
  } catch (const NetworkException& failure) {
    Log(LogCategory::Warnings, failure.what());
    return {};
  }
}

/// The index tells an interface that came back from the one that was removed: the kernel normally gives a new
/// one.
unsigned IndexOf(const SocketPair& pair) { return static_cast<unsigned>(pair[0].interface.ipi_ifindex); }

/// The former sockets where nothing has changed, null while the address cannot be used.
SharedPair Look(const IP4& address, const SharedPair& former) {
  std::optional<LocalAddress> local;
  try {
    local = FindLocalAddress(address);
  } catch (const NetworkException&) {
    return former;  // nothing is known
  }
  // Without an index it was never listed: a route makes it local.
  if (!local) return former && IndexOf(*former) == 0 ? former : nullptr;
  const bool isSame = former && IndexOf(*former) == local->interfaceIndex;
  const auto isKept = [&](const IP4& broadcast) { return isSame && TargetOf((*former)[0]) == broadcast; };
  if (!local->isUp || isKept(local->broadcast))
    return former;  // the sockets survive an interface that is down
  try {
    auto opened = Open(address, *local);
    return isKept(TargetOf((*opened)[0])) ? former
                                          : opened;  // refused again: a peer's address, not a broadcast one
  } catch (const NetworkException& failure) {
    // Out of descriptors, for instance: the old sockets still work for the same interface.
    if (isSame) return former;
    if (former) LogChange(address, failure.what());
    return nullptr;
  }
}

}  // namespace

SocketSet::SocketSet(SocketPairs opened)
    : pairs(std::move(opened)),
      outdated(cppu::AboveStandardStreams(cppu::UniqueFd(::eventfd(0, EFD_CLOEXEC)))) {
  if (!outdated) ThrowSystemFailure("Could not create close event");
}

InterfaceSockets::InterfaceSockets(std::vector<IP4> addresses)
    : addresses_(std::move(addresses)), nextCheck_(std::chrono::steady_clock::now() + kCheckPeriod) {
  SocketPairs pairs;
  for (const auto& address : addresses_) pairs.push_back(Open(address, FindAtStart(address)));
  current_ = std::make_shared<const SocketSet>(std::move(pairs));
}

std::shared_ptr<const SocketSet> InterfaceSockets::current() const {
  const std::lock_guard lock(mutex_);
  return current_;
}

bool InterfaceSockets::refresh() {
  const auto former = current();
  SocketPairs pairs;
  for (std::size_t i = 0; i < addresses_.size(); ++i) pairs.push_back(Look(addresses_[i], former->pairs[i]));
  return pairs == former->pairs ? current() != former : replace(former, pairs);
}

bool InterfaceSockets::refreshIfDue(std::chrono::steady_clock::time_point now) {
  auto due = nextCheck_.load();
  return now >= due && nextCheck_.compare_exchange_strong(due, now + kCheckPeriod) && refresh();
}

bool InterfaceSockets::replace(const std::shared_ptr<const SocketSet>& former, const SocketPairs& pairs) try {
  // Made before the lock: opening the event may fail, and then nothing has changed.
  const auto newer = std::make_shared<const SocketSet>(pairs);
  {
    const std::lock_guard lock(mutex_);
    if (closed_ || current_ != former) return true;  // another call was faster
    current_ = newer;
  }
  // Wakes those who poll the former set; it is never read, so every one of them sees it.
  ::eventfd_write(former->outdated.get(), 1);
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    if (pairs[i] != former->pairs[i]) LogChange(addresses_[i], pairs[i] ? "has changed" : "is gone");
  }
  return true;
} catch (const NetworkException&) {
  return false;  // no descriptor left for the event
}

void InterfaceSockets::abandon() const noexcept {
  // Without the lock, which a thread of the parent may hold. The set itself stays, as whatever else is here.
  for (const auto& pair : current_->pairs) {
    if (!pair) continue;
    for (const auto& network : *pair) ::close(network.descriptor.get());
  }
  ::close(current_->outdated.get());
}

void InterfaceSockets::close() {
  std::unique_lock lock(mutex_);
  closed_ = true;
  const auto last = current_;
  lock.unlock();
  if (::eventfd_write(last->outdated.get(), 1) != 0)
    LogSystemWarning("Could not signal connection to finish", errno);
}

}  // namespace quorvind
