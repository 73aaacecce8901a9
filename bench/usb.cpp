// USB through the stand-in driver, beside a hand-written receive thread over the same driver. To be run with
// LD_LIBRARY_PATH=BUILD/lib/sim.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "descriptor.h"
#include "inbox.h"
#include "io/ftdi/driver.h"
#include "io/ftdi/receive_event.h"
#include "limit_table.h"
#include "quorvio/quorvio.h"
#include "sim/ftdi/stand_in.h"

namespace qvbench {
namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr std::size_t kMessage = 64;
constexpr int kRounds = 61;
constexpr int kPerRound = 500;
constexpr std::size_t kChips = 64;

void SetChips(const std::string& chips) {
  const auto set = qvsim::StandIn().find<decltype(QVSIM_SetChips)>("QVSIM_SetChips");
  Require(set(chips.c_str()) == 1, "QVSIM_SetChips");
}

uint64_t TotalCalls() { return qvsim::StandIn().find<decltype(QVSIM_TotalCalls)>("QVSIM_TotalCalls")(); }

/// What an application would write for itself: a thread that sleeps in the driver's event, asks, and reads.
class HandWritten {
 public:
  HandWritten() {
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
  HandWritten(const HandWritten&) = delete;
  HandWritten& operator=(const HandWritten&) = delete;
  ~HandWritten() {
    {
      const std::lock_guard lock(event_);
      ended_ = true;
      event_.signal();
    }
    thread_.join();
    ft().FT_Close(chip_);
  }

  void roundTrip(std::array<uint8_t, kMessage>& message) {
    uint32_t written = 0;
    Require(ft().FT_Write(chip_, message.data(), kMessage, &written) == 0 && written == kMessage, "FT_Write");
    inbox_.await(kMessage);
  }

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

class Library {
 public:
  Library() {
    Require(QV_IO_Open(&handle_, "usb:sn:ECHO", "", &inbox_, &Library::onReceive, nullptr) == QV_IO_OK,
            "QV_IO_Open");
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
  ~Library() { QV_IO_Close(handle_, 1); }

  void roundTrip(std::array<uint8_t, kMessage>& message) {
    Require(QV_IO_Send(handle_, message.data(), message.size()) == QV_IO_OK, "QV_IO_Send");
    inbox_.await(kMessage);
  }

 private:
  static void onReceive(void* inbox, const uint8_t* /*data*/, std::size_t length) {
    static_cast<Inbox*>(inbox)->add(length);
  }

  Inbox inbox_;
  uint32_t handle_ = 0;
};

template <class Contestant>
double Time(Contestant& contestant) {
  std::array<uint8_t, kMessage> message{};
  const auto begin = Clock::now();
  for (int i = 0; i < kPerRound; ++i) contestant.roundTrip(message);
  return Microseconds(Clock::now() - begin).count() / kPerRound;
}

double Median(std::vector<double>& times) {
  std::ranges::sort(times);
  return times[times.size() / 2];
}

void MeasureRoundTrips() {
  SetChips("desc=\"Quorvi DRV-I\" serial=ECHO link=echo\ndesc=\"Quorvi DRV-I\" serial=OTHER link=echo\n");
  Library library;
  HandWritten handWritten;
  std::vector<double> ours;
  std::vector<double> theirs;
  std::vector<double> ratios;
  for (int round = 0; round < kRounds; ++round) {  // by turns, so that both meet the same machine
    ours.push_back(Time(library));
    theirs.push_back(Time(handWritten));
    ratios.push_back(ours.back() / theirs.back());
  }
  PrintLimit("64-byte round trip, USB", Median(ours), -1, "us");
  PrintLimit("64-byte round trip, USB, hand-written thread", Median(theirs), -1, "us");
  PrintLimit("64-byte round trip, USB, against the hand-written thread", Median(ratios), 1.2, "of its time");
}

void MeasureListing() {
  std::string chips;
  for (std::size_t i = 0; i < kChips; ++i)
    chips += "desc=\"Quorvi DRV2\" serial=BENCH-" + std::to_string(i) + "\n";
  SetChips(chips);
  std::array<char, 65536> text{};
  const auto list = [&](const char* options) {
    std::size_t size = text.size();
    Require(QV_IO_EnumerateDevices(QV_IO_INTERFACE_ALL, options, text.data(), &size) == QV_IO_OK, "listing");
  };
  list("iface-type usb\nonly-locator\nforce-rescan");
  const auto calls = TotalCalls();
  const char* const kinds[] = {"iface-type usb\nonly-locator",
                               "iface-type usb\ninclude-locator\ninclude-device-sn\ninclude-usb-desc"};
  for (const auto* options : kinds) {
    std::vector<double> times;
    for (int i = 0; i < kRounds; ++i) {
      const auto begin = Clock::now();
      list(options);
      times.push_back(Microseconds(Clock::now() - begin).count());
    }
    const auto what =
        std::string("listing of 64 chips from the cache, ") + (options == kinds[0] ? "locators" : "records");
    PrintLimit(what.c_str(), Median(times), 100, "us");
  }
  PrintLimit("driver calls in these listings", static_cast<double>(TotalCalls() - calls), 0, "");
}

}  // namespace
}  // namespace qvbench

int main() {
  qvbench::MeasureRoundTrips();
  qvbench::MeasureListing();
}
