#include "sim/ftdi/driver.h"

#include <pthread.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "sim/ftdi/device.h"

namespace qvsim {
namespace {

namespace status = qvio::d2xx::status;
using qvio::d2xx::DeviceNode;

std::string ContentsOf(const std::string& path) {
  std::ifstream file(path);
  std::string text(std::istreambuf_iterator<char>(file), {});
  if (!file) throw std::runtime_error("cannot be read");
  return text;
}

DeviceNode NodeOf(const Chip& chip) {
  const auto& about = chip.description;
  DeviceNode node{};
  node.flags = about.flags;
  if (chip.isHeld || chip.handle != nullptr) node.flags |= qvio::d2xx::OpenSomewhere;
  node.type = about.type;
  node.id = about.vendorId << 16U | about.productId;
  node.locationId = about.location;
  about.serialNumber.copy(node.serialNumber, sizeof node.serialNumber);
  about.description.copy(node.description, sizeof node.description);
  node.handle = chip.handle;
  return node;
}

}  // namespace

Chip::Chip(ChipDescription about)
    : description(std::move(about)),
      makeDevice(DeviceOf(description)),
      userArea(description.userArea),
      isHeld(description.held) {}

uint32_t Driver::takeSnapshot(uint32_t& count) {
  const std::lock_guard lock(mutex_);
  load();
  snapshot_.clear();
  listed_.clear();
  std::ranges::copy_if(chips_, std::back_inserter(listed_), [](const auto& chip) { return chip->isPlugged; });
  for (const auto& chip : listed_) snapshot_.push_back(NodeOf(*chip));
  count = static_cast<uint32_t>(snapshot_.size());
  return status::kOk;
}

uint32_t Driver::nodes(Node* nodes, uint32_t& count) const {
  const std::lock_guard lock(mutex_);
  std::ranges::copy(snapshot_, nodes);
  count = static_cast<uint32_t>(snapshot_.size());
  return status::kOk;
}

uint32_t Driver::chipCount() {
  const std::lock_guard lock(mutex_);
  load();
  return static_cast<uint32_t>(
      std::ranges::count_if(chips_, [](const auto& chip) { return chip->isPlugged; }));
}

uint32_t Driver::open(int index, Handle& handle) {
  const std::lock_guard lock(mutex_);
  const auto position = static_cast<std::size_t>(index);  // a negative one is beyond all
  if (position >= listed_.size()) return status::kDeviceNotFound;
  return openChip(listed_[position], handle);
}

uint32_t Driver::open(const std::function<bool(const ChipDescription&)>& isWanted, Handle& handle) {
  const std::lock_guard lock(mutex_);
  const auto chip = first([&](const Chip& one) { return one.isPlugged && isWanted(one.description); });
  return chip ? openChip(chip, handle) : status::kDeviceNotFound;
}

uint32_t Driver::openChip(const std::shared_ptr<Chip>& chip, Handle& handle) {
  if (!chip->isPlugged) return status::kDeviceNotFound;
  if (chip->isHeld || chip->handle != nullptr) return status::kDeviceNotOpened;
  const auto answers = chip->description.link == ChipDescription::Link::Echo ? Port::Answers::AtOnce
                                                                             : Port::Answers::AfterLatency;
  chip->port = std::make_shared<Port>(loop(), chip->makeDevice(), answers, chip->isStalled);
  lastHandle_ += 16;
  chip->handle = handle = reinterpret_cast<Handle>(lastHandle_);  // NOLINT(performance-no-int-to-ptr)
  open_[handle] = {chip, chip->port};
  return status::kOk;
}

EventLoop& Driver::loop() {
  if (loop_) return *loop_;
  // Like a thread of FTDI's driver it has the signal mask of whoever makes the first call.
  sigset_t inherited;
  ::pthread_sigmask(SIG_SETMASK, nullptr, &inherited);
  loop_.emplace().post([inherited] {
    ::pthread_sigmask(SIG_SETMASK, &inherited, nullptr);
    ::pthread_setname_np(::pthread_self(), "qvsim-ftdi");
  });
  return *loop_;
}

uint32_t Driver::close(Handle handle) {
  std::shared_ptr<Port> port;
  {
    const std::lock_guard lock(mutex_);
    auto entry = open_.extract(handle);
    if (entry.empty()) return status::kInvalidHandle;
    auto& chip = *entry.mapped().chip;
    if (chip.handle == handle) chip.handle = nullptr;
    port = std::move(entry.mapped().port);
  }
  port->end(status::kInvalidHandle);
  return status::kOk;
}

Driver::Opened Driver::find(Handle handle) const {
  const std::lock_guard lock(mutex_);
  const auto found = open_.find(handle);
  return found == open_.end() ? Opened{} : found->second;
}

void Driver::load() {
  if (isLoaded_) return;
  const char* const path = std::getenv("QVIO_SIM_CHIPS");
  if (path == nullptr || *path == '\0') return fill(ReadChips(kDefaultChips));
  try {
    fill(ReadChips(ContentsOf(path)));
  } catch (const std::runtime_error& failure) {
    std::fprintf(stderr, "libftd2xx: %s: %s\n", path, failure.what());
    throw;
  }
}

void Driver::fill(const std::vector<ChipDescription>& descriptions) {
  chips_.clear();
  for (const auto& description : descriptions) chips_.push_back(std::make_shared<Chip>(description));
  isLoaded_ = true;
}

bool Driver::setPlugged(std::string_view serialNumber, bool plugged) {
  std::shared_ptr<Port> port;
  {
    const std::lock_guard lock(mutex_);
    const auto chip = named(serialNumber);
    if (!chip) return false;
    chip->isPlugged = plugged;
    if (!plugged && std::exchange(chip->handle, nullptr) != nullptr) port = chip->port;
  }
  if (port) port->end(status::kIoError);
  return true;
}

bool Driver::setHeld(std::string_view serialNumber, bool held) {
  const std::lock_guard lock(mutex_);
  const auto chip = named(serialNumber);
  if (chip) chip->isHeld = held;
  return chip != nullptr;
}

bool Driver::setStalled(std::string_view serialNumber, bool stalled) {
  const std::lock_guard lock(mutex_);
  const auto chip = named(serialNumber);
  if (!chip) return false;
  chip->isStalled = stalled;
  if (chip->port) chip->port->setStalled(stalled);
  return true;
}

bool Driver::inject(std::string_view serialNumber, std::string_view bytes) {
  const std::lock_guard lock(mutex_);
  const auto chip = named(serialNumber);
  if (!chip || chip->handle == nullptr) return false;
  chip->port->inject(bytes);
  return true;
}

std::string Driver::settings(std::string_view serialNumber) {
  const std::lock_guard lock(mutex_);
  const auto chip = named(serialNumber);
  return chip && chip->port ? chip->port->settings() : "";
}

std::size_t Driver::openHandles() const {
  const std::lock_guard lock(mutex_);
  return open_.size();
}

void Driver::setChips(const std::vector<ChipDescription>& descriptions) {
  Ports ports;
  {
    const std::lock_guard lock(mutex_);
    ports = unplugAll();
    fill(descriptions);
  }
  for (const auto& port : ports) port->end(status::kIoError);
}

void Driver::reset() {
  std::map<Handle, Opened> open;
  {
    const std::lock_guard lock(mutex_);
    open = open_;
    unplugAll();
    chips_.clear();
    listed_.clear();
    snapshot_.clear();
    isLoaded_ = false;
  }
  // First: a close that finds no handle returns at once, and then no event may be touched.
  for (const auto& [handle, opened] : open) opened.port->end(status::kInvalidHandle);
  const std::lock_guard lock(mutex_);
  for (const auto& [handle, opened] : open) open_.erase(handle);
}

/// Returns the ports that have to be ended.
Driver::Ports Driver::unplugAll() {
  Ports ports;
  for (const auto& chip : chips_) {
    chip->isPlugged = false;
    if (std::exchange(chip->handle, nullptr) != nullptr) ports.push_back(chip->port);
  }
  return ports;
}

std::shared_ptr<Chip> Driver::named(std::string_view serialNumber) {
  return first([&](const Chip& one) { return one.description.serialNumber == serialNumber; });
}

std::shared_ptr<Chip> Driver::first(const std::function<bool(const Chip&)>& isWanted) {
  load();
  const auto chip = std::ranges::find_if(chips_, [&](const auto& one) { return isWanted(*one); });
  return chip == chips_.end() ? nullptr : *chip;
}

}  // namespace qvsim
