#include "driver/driver.h"

#include <pthread.h>

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

#include "driver/system.h"
#include "util/never_destroyed.h"
#include "util/thread.h"

namespace qvusb {
namespace {

namespace status = qvio::d2xx::status;
using cppu::Threads;
using qvio::d2xx::DeviceNode;

DeviceNode NodeOf(const Channel& channel) {
  DeviceNode node{};
  if (channel.isOpen) node.flags |= qvio::d2xx::OpenSomewhere;
  if (channel.runsAtHighSpeed) node.flags |= qvio::d2xx::HighSpeed;
  node.type = channel.kind.type;
  node.id = uint32_t{channel.vendor} << 16U | channel.product;
  node.locationId = channel.bus << 16U | channel.address << 8U | channel.number;
  channel.serialNumber.copy(node.serialNumber, sizeof node.serialNumber);
  channel.description.copy(node.description, sizeof node.description);
  return node;
}

}  // namespace

Driver& Driver::the() {
  static cppu::NeverDestroyed<Driver> driver;
  // A forked child has another one. The old one is not destroyed: a thread of the parent may hold its lock.
  [[maybe_unused]] static const int registered =
      ::pthread_atfork(Threads::beforeFork, Threads::afterForkInParent, [] {
        Threads::afterForkInChild();
        ::new (&driver.value) Driver;
      });
  return driver.value;
}

uint32_t Driver::makeList(uint32_t& count) {
  auto channels = PluggedChannels();
  const std::lock_guard lock(mutex_);
  listed_ = std::move(channels);
  count = static_cast<uint32_t>(listed_.size());
  return status::kOk;
}

uint32_t Driver::nodes(Node* nodes, uint32_t& count) const {
  const std::lock_guard lock(mutex_);
  std::ranges::transform(listed_, nodes, NodeOf);
  count = static_cast<uint32_t>(listed_.size());
  return status::kOk;
}

uint32_t Driver::open(int index, Handle& handle) {
  std::optional<Channel> listed;
  {
    const std::lock_guard lock(mutex_);
    const auto position = static_cast<std::size_t>(index);  // a negative one is beyond all
    if (position < listed_.size()) listed = listed_[position];
  }
  if (!listed) return status::kDeviceNotFound;
  return open([&](const Channel& channel) { return IsSame(channel, *listed); }, handle);
}

/// Looks afresh: the list may be old, and nothing may be taken away from a program that uses it.
uint32_t Driver::open(const std::function<bool(const Channel&)>& isWanted, Handle& handle) {
  const auto channels = PluggedChannels();
  const auto channel = std::ranges::find_if(channels, isWanted);
  if (channel == channels.end()) return status::kDeviceNotFound;
  if (channel->isOpen) return status::kDeviceNotOpened;
  const auto port = std::make_shared<Port>(*channel, OpenLink(*channel));
  // Its entry is ready before it is open, so that nothing can fail afterwards.
  decltype(open_) entry{{nextHandle(), port}};
  port->open(port);
  handle = entry.begin()->first;
  const std::lock_guard lock(mutex_);
  open_.merge(entry);
  return status::kOk;
}

Driver::Handle Driver::nextHandle() {
  const std::lock_guard lock(mutex_);
  lastHandle_ += 16;
  return reinterpret_cast<Handle>(lastHandle_);  // NOLINT(performance-no-int-to-ptr)
}

uint32_t Driver::close(Handle handle) {
  std::shared_ptr<Port> port;
  {
    const std::lock_guard lock(mutex_);
    const auto entry = open_.extract(handle);
    if (entry.empty()) return status::kInvalidHandle;
    port = entry.mapped();
  }
  port->close();
  return status::kOk;
}

std::shared_ptr<Port> Driver::find(Handle handle) const {
  const std::lock_guard lock(mutex_);
  const auto found = open_.find(handle);
  return found == open_.end() ? nullptr : found->second;
}

}  // namespace qvusb
