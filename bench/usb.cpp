// USB through the stand-in driver, beside a hand-written receive thread on the same driver.

#include <algorithm>
#include <array>
#include <atomic>
#include <string>
#include <thread>

#include "contestants.h"
#include "io/ftdi/driver.h"
#include "io/ftdi/receive_event.h"
#include "sim/peer.h"

namespace qvbench {
namespace {

constexpr int kRoundTrips = 500;
constexpr uint32_t kMessage = 64;
using Message = std::array<uint8_t, kMessage>;

/// What an application would write for itself: a thread that sleeps in the driver's event, asks, and reads.
class HandWrittenUsb {
 public:
  HandWrittenUsb() {
    Require(driver_.ensureLoaded(), "driver");
    uint32_t count = 0;
    std::string serial = "OTHER";
    Require(ft().FT_CreateDeviceInfoList(&count) == 0, "FT_CreateDeviceInfoList");
    Require(ft().FT_OpenEx(serial.data(), qvio::d2xx::kOpenBySerialNumber, &chip_) == 0, "FT_OpenEx");
    Require(ft().FT_SetLatencyTimer(chip_, 2) == 0, "FT_SetLatencyTimer");
    Require(ft().FT_SetEventNotification(chip_, qvio::d2xx::kEventReceived, event_.driverHandle()) == 0,
            "FT_SetEventNotification");
    thread_ = std::thread([this] { run(); });
  }
  HandWrittenUsb(const HandWrittenUsb&) = delete;
  HandWrittenUsb& operator=(const HandWrittenUsb&) = delete;
  ~HandWrittenUsb() {
    {
      const std::lock_guard lock(event_);
      ended_ = true;
      event_.signal();
    }
    thread_.join();
    ft().FT_Close(chip_);
  }

  void send(Message& message) {
    uint32_t written = 0;
    Require(ft().FT_Write(chip_, message.data(), kMessage, &written) == 0, "FT_Write");
  }
  void receive(std::size_t bytes) { inbox_.await(bytes); }

 private:
  [[nodiscard]] const qvio::D2xxFunctions& ft() const { return driver_.functions(); }

  uint32_t waiting() {
    uint32_t received = 0;
    uint32_t transmit = 0;
    uint32_t event = 0;
    Require(ft().FT_GetStatus(chip_, &received, &transmit, &event) == 0, "FT_GetStatus");
    return received;
  }

  void run() {
    std::array<uint8_t, 1024> buffer{};
    while (!ended_) {
      uint32_t count = 0;
      {
        const std::lock_guard lock(event_);
        while (!ended_ && (count = waiting()) == 0) static_cast<void>(event_.wait({}));
      }
      uint32_t got = 0;
      if (count != 0) ft().FT_Read(chip_, buffer.data(), std::min(count, 1024U), &got);
      inbox_.add(got);
    }
  }

  qvio::FtdiDriver driver_;
  qvio::ReceiveEvent event_;
  qvio::d2xx::Handle chip_ = nullptr;
  Inbox inbox_;
  std::atomic<bool> ended_ = false;
  std::thread thread_;
};

void RoundTrips(benchmark::State& state) {
  qvsim::Workshop workshop;
  SetChips(workshop, std::array<std::string, 2>{"ECHO", "OTHER"});
  Library library(*MakePeer(qvsim::Link::Usb, workshop, "ECHO"));
  HandWrittenUsb handWritten;
  Message message{};
  const auto roundTrip = [&](auto& contestant) {
    contestant.send(message);
    contestant.receive(message.size());
  };
  CompareByTurns(
      state, kRoundTrips, [&] { roundTrip(library); }, [&] { roundTrip(handWritten); });
}

[[maybe_unused]] const bool kRegistered = [] {
  benchmark::RegisterBenchmark("64-byte round trip, USB | hand-written thread", RoundTrips)
      ->UseManualTime()
      ->Unit(benchmark::kMicrosecond)
      ->Iterations(kRoundTrips);
  return true;
}();

}  // namespace
}  // namespace qvbench
