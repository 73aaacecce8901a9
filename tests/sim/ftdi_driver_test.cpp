// The stand-in driver, loaded as the library loads the real one.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdlib>
#include <ctime>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "io/ftdi/d2xx.h"
#include "sim/ftdi/control.h"
#include "support/wait.h"

namespace qvtest {
namespace {

using namespace qvio::d2xx;
using namespace std::chrono_literals;
using Result = std::pair<uint32_t, std::string>;  // status, and the bytes that went over

/// A function of either library: the chip-id library has loaded the other one.
template <class Function>
Function* Find(const char* name) {
  static void* const library = ::dlopen(STAND_IN_FOLDER "/libftchipid.so", RTLD_NOW | RTLD_LOCAL);
  return reinterpret_cast<Function*>(::dlsym(library, name));
}

const auto SetTimeouts = Find<Api::FT_SetTimeouts>("FT_SetTimeouts");
const auto SetBaudRate = Find<Api::FT_SetBaudRate>("FT_SetBaudRate");
const auto SetEvent = Find<Api::FT_SetEventNotification>("FT_SetEventNotification");
const auto Close = Find<Api::FT_Close>("FT_Close");
const auto SetChips = Find<decltype(QVSIM_SetChips)>("QVSIM_SetChips");
const auto Reset = Find<decltype(QVSIM_Reset)>("QVSIM_Reset");

Result Transfer(Api::FT_Read* function, Handle handle, std::string bytes) {
  uint32_t count = 0;
  const auto status = function(handle, bytes.data(), static_cast<uint32_t>(bytes.size()), &count);
  return {status, bytes.substr(0, count)};
}
Result Read(Handle handle, std::size_t size) {
  return Transfer(Find<Api::FT_Read>("FT_Read"), handle, std::string(size, '\0'));
}
Result Write(Handle handle, const std::string& bytes) {
  return Transfer(Find<Api::FT_Write>("FT_Write"), handle, bytes);
}
// The driver takes the text as writable.
// cppcheck-suppress passedByValue
uint32_t Open(std::string serial, Handle& handle) {
  return Find<Api::FT_OpenEx>("FT_OpenEx")(serial.data(), kOpenBySerialNumber, &handle);
}

/// L echoes, P has the line protocol and an identity; both are open. H is held.
struct FtdiDriver : testing::Test {
  FtdiDriver() {
    SetChips(
        "desc=Loop serial=L link=echo\n# P\n\ndesc='2 words' serial=P protocol-id=7 chip-id=0xFFFFFFFF # P\n"
        "desc=Held serial=H held");
    EXPECT_EQ(Open("L", loop) + Open("P", device), 0U);
  }
  ~FtdiDriver() override { Reset(); }

  Handle loop = nullptr;
  Handle device = nullptr;
};

TEST_F(FtdiDriver, SignalsBytesToAnOwnerWhoAsksForThemUnderHisMutex) {
  for (int round = 0; round < 100; ++round) {
    const auto event = std::make_unique<EventHandle>(
        EventHandle{PTHREAD_COND_INITIALIZER, PTHREAD_MUTEX_INITIALIZER, 0});  // freed right after the close
    ASSERT_EQ(SetEvent(loop, kEventReceived, event.get()), 0U);
    ::pthread_mutex_lock(&event->mutex);
    ASSERT_EQ(Write(loop, "ab"), (Result{0, "ab"}));
    uint32_t received = 0;
    uint32_t other = 0;
    const timespec limit{::time(nullptr) + kGenerous.count(), 0};
    for (int failed = 0; received == 0 && failed == 0;) {
      ASSERT_EQ(Find<Api::FT_GetStatus>("FT_GetStatus")(loop, &received, &other, &other), 0U);
      if (received == 0) failed = ::pthread_cond_timedwait(&event->condition, &event->mutex, &limit);
    }
    EXPECT_EQ(received, 2U) << "the event did not come";
    Write(loop, "cd");  // signalled while its owner closes
    EXPECT_EQ(Close(loop), 0U) << "under the mutex";
    ::pthread_mutex_unlock(&event->mutex);
    ASSERT_EQ(Open("L", loop), 0U);
  }
}

TEST_F(FtdiDriver, ReadsWhatIsThereWhenTheTimeIsOverAndLosesNothingInBulk) {
  SetTimeouts(loop, 30, 0);
  EXPECT_EQ(Find<decltype(QVSIM_Inject)>("QVSIM_Inject")("L", "abc", 3), 1);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Read(loop, 4), (Result{0, "abc"}));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
  SetTimeouts(loop, 0, 0);
  std::string sent(1 << 20, '\0');
  for (std::size_t i = 0; i < sent.size(); ++i) sent[i] = static_cast<char>(i * 31 >> 7);
  const auto writing = std::async(std::launch::async, [&] { EXPECT_EQ(Write(loop, sent).second, sent); });
  std::string received;
  while (received.size() < sent.size()) received += Read(loop, 4096).second;
  EXPECT_TRUE(received == sent);
}

TEST_F(FtdiDriver, RefusesChipsThatAreOpenAndOldHandles) {
  Handle other = nullptr;
  for (const auto* const serial : {"L", "H"}) EXPECT_EQ(Open(serial, other), 3U);
  for (const auto status : {0U, 1U}) EXPECT_EQ(Close(loop), status);
  uint32_t count = 0;
  std::vector<DeviceNode> nodes(3);
  EXPECT_EQ(Find<Api::FT_CreateDeviceInfoList>("FT_CreateDeviceInfoList")(&count), 0U);
  ASSERT_EQ(count, nodes.size());
  EXPECT_EQ(Find<Api::FT_GetDeviceInfoList>("FT_GetDeviceInfoList")(nodes.data(), &count), 0U);
  EXPECT_EQ(std::vector({nodes[0].flags, nodes[1].flags, nodes[2].flags}), (std::vector<uint32_t>{0, 1, 1}));
  EXPECT_STREQ(nodes[1].description, "2 words");
  unsigned long id = ~0UL << 32U;
  EXPECT_EQ(Find<Api::FTID_GetChipIDFromHandle>("FTID_GetChipIDFromHandle")(device, &id), 0U);
  EXPECT_EQ(id, 0xFFFFFFFFUL);
}

TEST_F(FtdiDriver, WakesBlockedCallsWhenAChipIsUnplugged) {
  Find<decltype(QVSIM_Stall)>("QVSIM_Stall")("L", 1);
  SetTimeouts(loop, 0, 20);
  EXPECT_EQ(Write(loop, std::string(65537, 'x')).second.size(), 65536U);
  SetTimeouts(loop, 0, 0);
  auto reading = std::async(std::launch::async, [&] { return Read(loop, 1); });
  auto writing = std::async(std::launch::async, [&] { return Write(loop, "x"); });
  EXPECT_TRUE(Eventually([&] { return Find<decltype(QVSIM_TotalCalls)>("QVSIM_TotalCalls")() == 7; }));
  EXPECT_EQ(Find<decltype(QVSIM_Unplug)>("QVSIM_Unplug")("L"), 1);
  EXPECT_EQ(reading.get().first + writing.get().first, 8U);
  EXPECT_EQ(SetBaudRate(loop, 9600), 4U);
}

TEST_F(FtdiDriver, FailsTheCallsThatWereScriptedAndNoOthers) {
  const auto fail = Find<decltype(QVSIM_FailCall)>("QVSIM_FailCall");
  EXPECT_EQ(fail("FT_SetBaudrate", 1, 4) - fail("FT_SetBaudRate", 2, 17), -1) << "only one of them is known";
  for (const auto status : {0U, 17U, 0U}) EXPECT_EQ(SetBaudRate(loop, 9600), status);
}

TEST_F(FtdiDriver, AnswersForItsIdentityBetweenLines) {
  Write(device, std::string("PO\xA4\x02\0\x01\xFDS?\n", 10));
  EXPECT_EQ(Read(device, 13), (Result{0, std::string("\xA4\x03\0\x81\x07\x75", 6) + "0.000\r\n"}));
}

TEST_F(FtdiDriver, RefusesMalformedChipsAndSaysWhere) {
  for (const std::string line :
       {"desc=A", "desc=A serial=12345678901234567", "desc='A serial=B", "x=1", "desc=A serial=B ua=123",
        "desc=A serial=B pid=65536", "desc=A serial=B desc=C", "desc='A'serial=B"}) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(SetChips(("# first\n" + line).c_str()), 0) << line;
    EXPECT_NE(testing::internal::GetCapturedStderr().find("line 2: "), std::string::npos) << line;
  }
  Reset();
  ::setenv("QVIO_SIM_CHIPS", "/no/such/file", 1);
  EXPECT_EQ(Open("L", loop), 18U);
  ::unsetenv("QVIO_SIM_CHIPS");
}

}  // namespace
}  // namespace qvtest
