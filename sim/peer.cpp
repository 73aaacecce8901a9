#include "sim/peer.h"

#include <optional>
#include <stdexcept>
#include <utility>

#include "sim/network_device.h"
#include "sim/serial_device.h"

namespace qvsim {
namespace {

Reading ReadingOf(bool stalled) { return stalled ? Reading::Stalled : Reading::Answering; }

class TcpPeer final : public Peer {
 public:
  explicit TcpPeer(EventLoop& loop)
      : device_(std::in_place, loop, "127.0.0.1", uint16_t{0}, MakeEcho), port_(device_->port()) {}

  [[nodiscard]] std::string locator() const override { return "network:127.0.0.1:" + std::to_string(port_); }

  void suffer(Fault fault) override {
    if (fault == Fault::EndsSending) return device_->halfCloseAll();
    if (fault == Fault::Closes) return device_->closeAll();
    device_->resetAll();
    if (fault == Fault::Vanishes) device_.reset();
  }

  void stall(bool stalled) override { device_->setReading(ReadingOf(stalled)); }
  void flood() override { device_->sendForever(); }
  [[nodiscard]] bool holdsUp() override { return device_->hasUnread(); }

 private:
  std::optional<NetworkDevice> device_;  ///< empty: it has vanished
  uint16_t port_;
};

class TerminalPeer final : public Peer {
 public:
  explicit TerminalPeer(EventLoop& loop) : device_(loop, MakeEcho) {}

  [[nodiscard]] std::string locator() const override { return "serial:" + device_.path(); }
  [[nodiscard]] std::string options() const override { return "baudrate 115200"; }

  void suffer(Fault /*fault*/) override { device_.hangUp(); }
  void stall(bool stalled) override { device_.setReading(ReadingOf(stalled)); }
  void flood() override { device_.sendForever(); }
  [[nodiscard]] bool holdsUp() override { return device_.hasUnread(); }

 private:
  SerialDevice device_;
};

class ChipPeer final : public Peer {
 public:
  ChipPeer(const StandIn& standIn, std::string serialNumber)
      : standIn_(standIn), serialNumber_(std::move(serialNumber)) {
    standIn_.find<decltype(QVSIM_Replug)>("QVSIM_Replug")(serialNumber_.c_str());
    stall(false);
  }

  [[nodiscard]] std::string locator() const override { return "usb:sn:" + serialNumber_; }

  void suffer(Fault /*fault*/) override {
    standIn_.find<decltype(QVSIM_Unplug)>("QVSIM_Unplug")(serialNumber_.c_str());
  }
  void stall(bool stalled) override {
    standIn_.find<decltype(QVSIM_Stall)>("QVSIM_Stall")(serialNumber_.c_str(), stalled ? 1 : 0);
    writesBefore_ = writes();
  }
  void flood() override {
    const std::string bytes(std::size_t{1} << 20U, '.');
    standIn_.find<decltype(QVSIM_Inject)>("QVSIM_Inject")(serialNumber_.c_str(), bytes.data(), bytes.size());
  }
  [[nodiscard]] bool holdsUp() override { return writes() > writesBefore_; }

 private:
  [[nodiscard]] uint64_t writes() const {
    return standIn_.find<decltype(QVSIM_Calls)>("QVSIM_Calls")("FT_Write");
  }

  const StandIn& standIn_;
  const std::string serialNumber_;
  uint64_t writesBefore_ = 0;
};

}  // namespace

std::string NameOf(Link link) {
  constexpr std::array kNames{"USB", "terminal", "TCP"};
  return kNames.at(static_cast<std::size_t>(link));
}

std::string NameOf(Fault fault) {
  constexpr std::array kNames{"vanishes", "closes", "resets", "ends sending"};
  return kNames.at(static_cast<std::size_t>(fault));
}

std::span<const Fault> FaultsOf(Link link) {
  static constexpr std::array kFaults{Fault::Vanishes, Fault::Closes, Fault::Resets, Fault::EndsSending};
  return std::span(kFaults).first(link == Link::Tcp ? kFaults.size() : 1);
}

std::unique_ptr<Peer> MakePeer(Link link, Workshop& workshop, const std::string& chip) {
  if (link == Link::Tcp) return std::make_unique<TcpPeer>(workshop.loop);
  if (link == Link::Terminal) return std::make_unique<TerminalPeer>(workshop.loop);
  return std::make_unique<ChipPeer>(workshop.standIn, chip);
}

void SetChips(const Workshop& workshop, std::span<const std::string> serialNumbers) {
  std::string text;
  for (const auto& serialNumber : serialNumbers)
    text += "desc=\"Quorvi DRV-I\" serial=" + serialNumber + " link=echo\n";
  if (workshop.standIn.find<decltype(QVSIM_SetChips)>("QVSIM_SetChips")(text.c_str()) != 1)
    throw std::runtime_error("QVSIM_SetChips");
}

}  // namespace qvsim
