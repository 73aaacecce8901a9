#include "peer.h"

#include <array>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "sim/network_device.h"
#include "sim/serial_device.h"

namespace qvsoak {
namespace {

using qvsim::Reading;

class TcpPeer final : public Peer {
 public:
  explicit TcpPeer(qvsim::EventLoop& loop) : loop_(loop) { listen(0); }

  [[nodiscard]] std::string locator() const override { return "network:127.0.0.1:" + std::to_string(port_); }

  void suffer(Fault fault) override {
    if (!device_) return;
    if (fault == Fault::EndsSending) return device_->halfCloseAll();
    if (fault == Fault::Closes) return device_->closeAll();
    device_->resetAll();
    if (fault == Fault::Vanishes) device_.reset();
  }

  void comeBack() override {
    try {
      listen(port_);
    } catch (const std::system_error&) {
      listen(0);  // meanwhile the port became that of an outgoing connection
    }
  }

  void stall(bool stalled) override {
    if (device_) device_->setReading(stalled ? Reading::Stalled : Reading::Answering);
  }
  void flood() override { device_->sendForever(); }
  [[nodiscard]] bool holdsUp() override { return device_->hasUnread(); }

 private:
  void listen(uint16_t port) {
    device_.emplace(loop_, "127.0.0.1", port, qvsim::MakeEcho);
    port_ = device_->port();
  }

  qvsim::EventLoop& loop_;
  uint16_t port_ = 0;
  std::optional<qvsim::NetworkDevice> device_;
};

class TerminalPeer final : public Peer {
 public:
  explicit TerminalPeer(qvsim::EventLoop& loop) : loop_(loop) { comeBack(); }

  [[nodiscard]] std::string locator() const override { return "serial:" + device_->path(); }
  [[nodiscard]] const char* options() const override { return "baudrate 115200"; }

  void suffer(Fault /*fault*/) override { device_->hangUp(); }
  void comeBack() override { device_.emplace(loop_, qvsim::MakeEcho); }

  void stall(bool stalled) override { device_->setReading(stalled ? Reading::Stalled : Reading::Answering); }
  void flood() override { device_->sendForever(); }
  [[nodiscard]] bool holdsUp() override { return device_->hasUnread(); }

 private:
  qvsim::EventLoop& loop_;
  std::optional<qvsim::SerialDevice> device_;
};

class ChipPeer final : public Peer {
 public:
  ChipPeer(const qvsim::StandIn& standIn, std::string serialNumber)
      : serialNumber_(std::move(serialNumber)),
        unplug_(standIn.find<decltype(QVSIM_Unplug)>("QVSIM_Unplug")),
        replug_(standIn.find<decltype(QVSIM_Replug)>("QVSIM_Replug")),
        stall_(standIn.find<decltype(QVSIM_Stall)>("QVSIM_Stall")),
        inject_(standIn.find<decltype(QVSIM_Inject)>("QVSIM_Inject")),
        calls_(standIn.find<decltype(QVSIM_Calls)>("QVSIM_Calls")) {}

  [[nodiscard]] std::string locator() const override { return "usb:sn:" + serialNumber_; }

  void suffer(Fault /*fault*/) override { unplug_(serialNumber_.c_str()); }
  void comeBack() override { replug_(serialNumber_.c_str()); }

  void stall(bool stalled) override {
    stall_(serialNumber_.c_str(), stalled ? 1 : 0);
    writesBefore_ = calls_("FT_Write");
  }
  void flood() override {
    const std::string bytes(std::size_t{1} << 20U, '.');
    inject_(serialNumber_.c_str(), bytes.data(), bytes.size());
  }
  [[nodiscard]] bool holdsUp() override { return calls_("FT_Write") > writesBefore_; }

 private:
  const std::string serialNumber_;
  decltype(QVSIM_Unplug)* unplug_;
  decltype(QVSIM_Replug)* replug_;
  decltype(QVSIM_Stall)* stall_;
  decltype(QVSIM_Inject)* inject_;
  decltype(QVSIM_Calls)* calls_;
  uint64_t writesBefore_ = 0;
};

}  // namespace

std::string NameOf(Fault fault) {
  constexpr std::array kNames{"vanishes", "closes", "resets", "ends sending"};
  return kNames.at(static_cast<std::size_t>(fault));
}

std::span<const Fault> FaultsOf(Kind kind) {
  static constexpr std::array kFaults{Fault::Vanishes, Fault::Closes, Fault::Resets, Fault::EndsSending};
  return std::span(kFaults).first(kind == Kind::Tcp ? kFaults.size() : 1);
}

std::unique_ptr<Peer> MakePeer(Kind kind, Workshop& workshop, const std::string& chip) {
  if (kind == Kind::Tcp) return std::make_unique<TcpPeer>(workshop.loop);
  if (kind == Kind::Serial) return std::make_unique<TerminalPeer>(workshop.loop);
  return std::make_unique<ChipPeer>(workshop.standIn, chip);
}

void SetChips(const Workshop& workshop, std::span<const std::string> serialNumbers) {
  std::string text;
  for (const auto& serialNumber : serialNumbers)
    text += "desc=\"Quorvi DRV-I\" serial=" + serialNumber + " link=echo\n";
  if (workshop.standIn.find<decltype(QVSIM_SetChips)>("QVSIM_SetChips")(text.c_str()) != 1)
    throw std::runtime_error("QVSIM_SetChips");
}

}  // namespace qvsoak
