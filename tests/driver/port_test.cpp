// The driver with a simulated chip, where the tests of channels do not reach.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/eventfd.h>

#include <atomic>
#include <cerrno>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "driver/port.h"
#include "io/ftdi/driver.h"
#include "io/ftdi/receive_event.h"
#include "sim/ftdi/stand_in.h"
#include "support/wait.h"

namespace qvtest {
namespace {

using namespace std::chrono_literals;
using namespace qvusb;
namespace status = qvio::d2xx::status;
using qvio::d2xx::Handle;

struct OpenChip : testing::Test {
  OpenChip() {
    EXPECT_TRUE(driver.ensureLoaded());
    find<decltype(QVSIM_Reset)>("QVSIM_Reset")();
    find<decltype(QVSIM_SetChips)>("QVSIM_SetChips")("desc=Loop serial=L link=echo");
    std::string serial = "L";
    EXPECT_EQ(ft.FT_OpenEx(serial.data(), qvio::d2xx::kOpenBySerialNumber, &chip), 0U);
  }
  ~OpenChip() override { EXPECT_EQ(ft.FT_Close(chip), 0U); }

  template <class Function>
  [[nodiscard]] Function* find(const char* name) const {
    return standIn.find<Function>(name);
  }
  void inject(const std::string& bytes) const {
    find<decltype(QVSIM_Inject)>("QVSIM_Inject")("L", bytes.data(), bytes.size());
  }
  [[nodiscard]] uint32_t waiting() const {
    uint32_t received = 0;
    uint32_t other = 0;
    return ft.FT_GetStatus(chip, &received, &other, &other) == 0 ? received : UINT32_MAX;
  }
  [[nodiscard]] std::pair<uint32_t, std::string> read(std::size_t size) const {
    std::string bytes(size, '\0');
    uint32_t got = 0;
    const auto status = ft.FT_Read(chip, bytes.data(), static_cast<uint32_t>(size), &got);
    return {status, bytes.substr(0, got)};
  }

  qvsim::StandIn standIn;
  qvio::FtdiDriver driver;
  const qvio::D2xxFunctions& ft = driver.functions();
  Handle chip = nullptr;
};

TEST_F(OpenChip, LeavesWithTheChipWhatTheQueueCannotTake) {
  std::string sent;
  for (int i = 0; i < 400000; ++i) sent += static_cast<char>(i * 7 + i / 251);
  inject(sent);
  EXPECT_TRUE(Eventually([&] { return waiting() > 65536; }));
  EXPECT_LT(waiting(), 65536U + 4 * 512);
  EXPECT_EQ(read(sent.size()).second, sent);
  EXPECT_EQ(ft.FT_SetUSBParameters(chip, 65536, 65536), 0U);
  inject(sent);
  EXPECT_EQ(read(sent.size()).second, sent) << "in larger transfers";
}

TEST_F(OpenChip, ForgetsWhatCameBeforeAPurge) {
  inject("old");
  EXPECT_TRUE(Eventually([&] { return waiting() == 3; }));
  EXPECT_EQ(ft.FT_Purge(chip, 1), 0U);
  inject("new");
  EXPECT_EQ(read(3).second, "new");
}

TEST_F(OpenChip, GivesWhatItHasBeforeItReportsThatTheChipIsGone) {
  inject("abc");
  EXPECT_TRUE(Eventually([&] { return waiting() == 3; }));
  EXPECT_EQ(find<decltype(QVSIM_Unplug)>("QVSIM_Unplug")("L"), 1);
  EXPECT_EQ(read(2), (std::pair<uint32_t, std::string>{0, "ab"}));
  EXPECT_EQ(read(2), (std::pair<uint32_t, std::string>{0, "c"}));
  EXPECT_EQ(read(2).first, status::kIoError);
  EXPECT_EQ(waiting(), UINT32_MAX);
  EXPECT_EQ(ft.FT_SetLatencyTimer(chip, 2), status::kIoError);
}

TEST_F(OpenChip, ReturnsFromAWriteThatTheLineHoldsUp) {
  const auto stall = find<decltype(QVSIM_Stall)>("QVSIM_Stall");
  std::string bytes = "held";
  uint32_t written = 9;
  stall("L", 1);
  EXPECT_EQ(ft.FT_Write(chip, bytes.data(), 4, &written), 0U);
  EXPECT_EQ(written, 0U);
  stall("L", 0);
  EXPECT_EQ(ft.FT_Write(chip, bytes.data(), 4, &written), 0U);
  EXPECT_EQ(read(4).second, "held") << "and only once";
}

TEST_F(OpenChip, SignalsBytesThatCameWhenItCouldNot) {
  inject("x");
  EXPECT_TRUE(Eventually([&] { return waiting() == 1; }));
  qvio::ReceiveEvent event;
  const std::lock_guard lock(event);
  EXPECT_EQ(ft.FT_SetEventNotification(chip, qvio::d2xx::kEventReceived, event.driverHandle()), 0U);
  EXPECT_TRUE(event.wait(std::chrono::steady_clock::now() + kGenerous));
  inject("y");
  EXPECT_TRUE(Eventually([&] { return waiting() == 2; }));
  EXPECT_TRUE(event.wait(std::chrono::steady_clock::now() + kGenerous)) << "the mutex was taken at first";
  EXPECT_EQ(ft.FT_SetEventNotification(chip, 0, nullptr), 0U) << "under its mutex";
}

TEST_F(OpenChip, PassesSettingsOnToTheChip) {
  EXPECT_EQ(ft.FT_SetBaudRate(chip, 12000000) + ft.FT_SetDataCharacteristics(chip, 7, 2, 1) +
                ft.FT_SetFlowControl(chip, 0x400, 17, 19) + ft.FT_SetLatencyTimer(chip, 3) +
                ft.FT_SetBitMode(chip, 255, 64) + ft.FT_Purge(chip, 3),
            0U);
  EXPECT_STREQ(find<decltype(QVSIM_Settings)>("QVSIM_Settings")("L"),
               "baud=12000000 r0=1,0 r11=16639,0 r2=4881,1024 r4=4359,0 r9=3,0");
  EXPECT_EQ(ft.FT_SetBaudRate(chip, 50), status::kInvalidBaudRate);
  EXPECT_EQ(ft.FT_SetLatencyTimer(chip, 0), status::kInvalidParameter);
  EXPECT_EQ(ft.FT_EE_UAWrite(chip, nullptr, 0), status::kNotSupported);
}

/// What becomes of a read.
struct Outcome {
  int refusal = 0;  ///< errno: it is not even accepted
  int error = 0;    ///< errno of its end
  std::size_t done = 0;
};

using Script = std::vector<std::pair<int, Outcome>>;  ///< how often, one after the other; then no read ends

class ScriptedLink final : public Link {
 public:
  explicit ScriptedLink(const Script& script) : ready_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    for (const auto& [times, outcome] : script)
      outcomes_.insert(outcomes_.end(), static_cast<std::size_t>(times), outcome);
  }

  int control(const ControlRequest& /*request*/, std::span<uint8_t> /*answer*/) override { return 0; }
  int submit(Transfer& transfer) override {
    transfer.isPending = true;
    if (outcomes_.empty()) return 0;
    const auto outcome = outcomes_.front();
    outcomes_.pop_front();
    transfer.isPending = outcome.refusal == 0;
    if (!transfer.isPending) return outcome.refusal;
    transfer.error = outcome.error;
    transfer.done = outcome.done;
    ended_.push_back(&transfer);
    ::eventfd_write(ready_.get(), 1);
    return 0;
  }
  Transfer* reap() override {
    eventfd_t ignored = 0;
    if (ended_.empty()) return ::eventfd_read(ready_.get(), &ignored), nullptr;
    auto* const transfer = ended_.back();
    ended_.pop_back();
    transfer->isPending = false;
    return transfer;
  }
  void clearHalt(Transfer::Direction /*direction*/) override {}
  void cancel(Transfer& /*transfer*/) override {}
  [[nodiscard]] pollfd readiness() const override { return {ready_.get(), POLLIN, 0}; }
  void release() noexcept override {}
  void abandon() noexcept override {}

 private:
  std::deque<Outcome> outcomes_;
  std::vector<Transfer*> ended_;
  cppu::UniqueFd ready_;
};

TEST(OwnDriver, ReadsOnAfterAFaultOfTheBusUntilItIsClearThatTheChipIsGone) {
  constexpr Outcome kByte{.done = 3};
  constexpr Outcome kFault{.error = EPROTO};
  constexpr Outcome kRefused{.refusal = ENOMEM};
  constexpr Outcome kFull{.done = 512};
  constexpr int kForever = 1000;
  constexpr int kReadsThatFillTheQueue = 136;
  constexpr std::size_t kBytesOfAFull = 512 - 8 * 2;
  const struct {
    const char* name;
    Script script;
    std::size_t size;
    uint32_t status;
  } rows[] = {{"no fault", {{1, kByte}}, 1, status::kOk},
              {"failed", {{10, kFault}, {1, kByte}}, 1, status::kOk},
              {"refused", {{10, kRefused}, {1, kByte}}, 1, status::kOk},
              {"failed for good", {{kForever, kFault}}, 1, status::kIoError},
              {"refused for good", {{kForever, kRefused}}, 1, status::kIoError},
              {"refused on the thread that makes room",
               {{kReadsThatFillTheQueue, kFull}, {3, kRefused}, {1, kByte}},
               kReadsThatFillTheQueue * kBytesOfAFull + 1,
               status::kOk}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Channel channel;
    channel.packetSize = 64;
    const auto port = std::make_shared<Port>(channel, std::make_unique<ScriptedLink>(row.script));
    port->open(port);
    uint32_t waiting = 0;
    uint32_t ignored = 0;
    EXPECT_TRUE(Eventually([&] {
      return port->getStatus(waiting, ignored, ignored) != status::kOk || waiting >= row.size - 1;
    }));
    std::vector<char> bytes(row.size);
    uint32_t got = 0;
    EXPECT_EQ(port->read(bytes.data(), row.size, got), row.status);
    port->close();
  }
}

TEST(OwnDriver, HasAllFunctionsThatTheLibraryNeeds) {
  for (const auto library : {qvio::FtdiLibrary::Driver, qvio::FtdiLibrary::ChipId}) {
    const auto path = std::string(DRIVER_FOLDER) + '/' + qvio::FileName(library);
    void* const loaded = ::dlopen(path.c_str(), RTLD_NOW);
    ASSERT_NE(loaded, nullptr) << ::dlerror();
    for (const auto name : qvio::NeededFunctions(library))
      EXPECT_NE(::dlsym(loaded, std::string(name).c_str()), nullptr) << name;
  }
}

}  // namespace
}  // namespace qvtest
