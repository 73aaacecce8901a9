// Bytes through a chip, the faults of chip and driver, and closing in every state.

#include <pthread.h>

#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include "usb/chips.h"

namespace qvtest {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

TEST_F(Usb, CarriesBytesBothWaysInPiecesOfAtMostAChunk) {
  const RecordedChannel channel("usb:sn:SLOW");
  std::string bytes;
  for (int i = 0; i < 300000; ++i) bytes += static_cast<char>(i * 7 + i / 256);
  EXPECT_EQ(channel.send(bytes), QV_IO_OK);
  EXPECT_TRUE(channel.receives(bytes));
  EXPECT_LE(channel.largestPiece(), std::size_t{QV_IO_RECEIVE_CHUNK});
  EXPECT_EQ(channel.send(""), QV_IO_OK);
}

TEST_F(Usb, ReportsHowASendFailed) {
  const RecordedChannel channel("usb:sn:SLOW", "tx-timeout 300");
  const struct {
    uint32_t status;
    uint32_t result;
  } rows[] = {
      {4, QV_IO_ERROR_CONNECTION_LOST}, {18, QV_IO_ERROR_TRANSMIT_FAILED}, {1, QV_IO_ERROR_TRANSMIT_FAILED}};
  for (const auto& row : rows) {
    failCall("FT_Write", 1, row.status);
    EXPECT_EQ(channel.send("x"), row.result) << row.status;
  }
  const auto before = calls("FT_Write");
  find<decltype(QVSIM_LimitWrites)>("QVSIM_LimitWrites")(3, 2);
  EXPECT_EQ(channel.send("12345678"), QV_IO_OK) << "short writes go on";
  EXPECT_EQ(calls("FT_Write") - before, 4U);
  find<decltype(QVSIM_LimitWrites)>("QVSIM_LimitWrites")(1000000, 0);
  const auto begin = Clock::now();
  EXPECT_EQ(channel.send("x"), QV_IO_ERROR_TRANSMIT_FAILED) << "empty writes go on to the limit";
  EXPECT_GE(Clock::now() - begin, 300ms);
}

TEST_F(Usb, ReportsHowReceivingFailedAndGoesOn) {
  const RecordedChannel channel("usb:sn:SLOW", "health-check 50");
  const struct {
    const char* function;
    uint32_t status;
    uint32_t notice;
  } rows[] = {{"FT_GetStatus", 4, QV_IO_ERROR_CONNECTION_LOST},
              {"FT_GetStatus", 18, QV_IO_ERROR_RECEIVE_FAILED},
              {"FT_Read", 4, QV_IO_ERROR_CONNECTION_LOST},
              {"FT_Read", 18, QV_IO_ERROR_RECEIVE_FAILED}};
  std::string sent;
  for (const auto& row : rows) {
    const int before = channel.notices(row.notice);
    failCall(row.function, 1, row.status);
    sent += row.function;
    EXPECT_EQ(channel.send(row.function), QV_IO_OK);
    EXPECT_TRUE(channel.isNotified(row.notice, before + 1)) << row.function << row.status;
    EXPECT_TRUE(channel.receives(sent)) << "nothing is lost";
  }
}

TEST_F(Usb, DistrustsCountsAboveThoseAskedFor) {
  const RecordedChannel channel("usb:sn:SLOW");
  find<decltype(QVSIM_OverReportWrites)>("QVSIM_OverReportWrites")(1, 1);
  EXPECT_EQ(channel.send("x"), QV_IO_ERROR_TRANSMIT_FAILED);
  EXPECT_TRUE(channel.receives("x"));
  find<decltype(QVSIM_OverReportReads)>("QVSIM_OverReportReads")(1, 5);
  EXPECT_EQ(channel.send("!"), QV_IO_OK);
  EXPECT_TRUE(channel.isNotified(QV_IO_ERROR_RECEIVE_FAILED));
  EXPECT_TRUE(channel.receives("x!")) << "no more than was asked for";
}

TEST_F(Usb, ReportsAnUnpluggedChipOnceInAPeriod) {
  const struct {
    const char* options;
    int notices;
    std::chrono::milliseconds least;
  } rows[] = {{"health-check 50", 8, 350ms}, {"health-check 250", 3, 500ms}};
  for (const auto& row : rows) {
    ASSERT_EQ(find<decltype(QVSIM_Replug)>("QVSIM_Replug")("SLOW"), 1);
    const RecordedChannel channel("usb:sn:SLOW", row.options);
    ASSERT_EQ(channel.result(), QV_IO_OK);
    unplug("SLOW");
    EXPECT_TRUE(channel.isNotified(QV_IO_ERROR_CONNECTION_LOST));
    const auto begin = Clock::now();
    EXPECT_TRUE(channel.isNotified(QV_IO_ERROR_CONNECTION_LOST, row.notices + 1));
    EXPECT_GE(Clock::now() - begin, row.least) << row.options;
  }
  ASSERT_EQ(find<decltype(QVSIM_Replug)>("QVSIM_Replug")("SLOW"), 1);
  const RecordedChannel channel("usb:sn:SLOW", "health-check 0");
  unplug("SLOW");
  std::this_thread::sleep_for(100ms);  // time for what must not happen
  EXPECT_LE(channel.notices(QV_IO_ERROR_CONNECTION_LOST), 1);
}

TEST_F(Usb, ReportsAQueryThatFailsAgainAfterOneThatSucceeded) {
  failCall("FT_GetStatus", 1, 18);
  const RecordedChannel channel("usb:sn:SLOW", "health-check 0");
  EXPECT_TRUE(channel.isNotified(QV_IO_ERROR_RECEIVE_FAILED));
  EXPECT_TRUE(Eventually([&] { return calls("FT_GetStatus") == 2; })) << "there is nothing to read";
  failCall("FT_GetStatus", 1, 4);
  EXPECT_EQ(channel.send("x"), QV_IO_OK);
  EXPECT_TRUE(channel.isNotified(QV_IO_ERROR_CONNECTION_LOST));
  EXPECT_TRUE(channel.receives("x"));
}

TEST_F(Usb, ClosesAtOnceInEveryState) {
  const struct {
    const char* name;
    const char* options;
    std::function<void(RecordedChannel&)> enter;
  } rows[] = {{"idle", "health-check 50", [](auto&) {}},
              {"idle, unchecked", "health-check 0", [](auto&) {}},
              {"unplugged", "health-check 50", [&](auto&) { unplug("SLOW"); }},
              {"reads fail without end", "health-check 0",
               [&](auto& channel) {
                 find<decltype(QVSIM_FailReads)>("QVSIM_FailReads")(18);
                 EXPECT_EQ(channel.send("x"), QV_IO_OK);
                 EXPECT_TRUE(channel.isNotified(QV_IO_ERROR_RECEIVE_FAILED, 2));
               }},
              {"unplugged while reading", "health-check 50",
               [&](auto& channel) {
                 channel.onPiece = [this](std::string_view) { unplug("SLOW"); };
                 // The first bytes may come back, and so unplug the chip, before the last are taken.
                 const auto sent = channel.send(std::string(5000, 'x'));
                 EXPECT_TRUE(sent == QV_IO_OK || sent == QV_IO_ERROR_CONNECTION_LOST) << sent;
                 EXPECT_TRUE(channel.isNotified(QV_IO_ERROR_CONNECTION_LOST));
               }},
              {"status fails without end", "health-check 50", [&](auto& channel) {
                 failCall("FT_GetStatus", 0, 18);
                 EXPECT_TRUE(channel.isNotified(QV_IO_ERROR_RECEIVE_FAILED));
               }}};
  for (const auto& row : rows) {
    for (const uint32_t wait : {1U, 0U}) {
      SCOPED_TRACE(row.name);
      plugIn(kChips);
      RecordedChannel channel("usb:sn:SLOW", row.options);
      ASSERT_EQ(channel.result(), QV_IO_OK);
      row.enter(channel);
      const auto begin = Clock::now();
      channel.close(wait);
      EXPECT_LT(Clock::now() - begin, 200ms);
      EXPECT_TRUE(Eventually([&] { return openHandles() == 0; }));
    }
  }
}

TEST_F(Usb, EndsASendThatIsInProgressWhenItIsClosed) {
  for (const bool unplugged : {false, true}) {
    plugIn(kChips);
    RecordedChannel channel("usb:sn:SLOW", "tx-timeout 20000");
    find<decltype(QVSIM_LimitWrites)>("QVSIM_LimitWrites")(1000000, 0);
    auto sender = std::async(std::launch::async, [&] { return channel.send("x"); });
    EXPECT_TRUE(Eventually([&] { return calls("FT_Write") > 3; }));
    if (unplugged) unplug("SLOW");
    channel.close(1);
    const auto result = sender.get();
    EXPECT_TRUE(result == QV_IO_ERROR_TRANSMIT_FAILED || result == QV_IO_ERROR_CONNECTION_LOST) << result;
  }
}

TEST_F(Usb, GivesTheChipsId) {
  const quorvio::Channel channel("usb:sn:FAST");
  EXPECT_EQ(channel.property("ftdi-id"), "4000000002");
  EXPECT_EQ(CodeOf([&] { (void)channel.property("FTDI-ID"); }), quorvio::Errc::propertyUnavailable);
  const quorvio::Channel without("usb:sn:SENSOR", quorvio::Options().add("baudrate", 9600));
  EXPECT_EQ(CodeOf([&] { (void)without.property("ftdi-id"); }), quorvio::Errc::notSupported);
}

TEST_F(Usb, FailsASendAfterACallbackHasEndedTheReceiveThread) {
  uint32_t handle = 0;
  const auto end = [](void*, const uint8_t*, std::size_t) { ::pthread_exit(nullptr); };
  ASSERT_EQ(QV_IO_Open(&handle, "usb:sn:SLOW", "", nullptr, end, nullptr), QV_IO_OK);
  EXPECT_EQ(QV_IO_Send(handle, "POS?\n", 5), QV_IO_OK);
  EXPECT_TRUE(Eventually([&] { return openHandles() == 0; }));
  EXPECT_EQ(QV_IO_Send(handle, "POS?\n", 5), QV_IO_ERROR_TRANSMIT_FAILED);
  EXPECT_EQ(QV_IO_Close(handle, 1), QV_IO_OK);
}

}  // namespace
}  // namespace qvtest
