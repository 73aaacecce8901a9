#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <set>

#include "nd/log.h"
#include "unit/nd/fake_connection.h"
#include "util/thread.h"

namespace quorvind {
namespace {

using namespace std::chrono_literals;
using Texts = std::vector<std::string>;
using Answer = std::function<ResultCode()>;

/// Makes the request with this opcode.
Answer Ask(Host& host, int opCode, uint32_t type = 7, const std::string& serialNumber = "SN") {
  if (opCode == 1)
    return [answer = host.getConfiguration(type, serialNumber).share()] { return answer.get().Code; };
  auto answer = opCode == 2   ? host.setConfiguration(type, serialNumber, {})
                : opCode == 3 ? host.resetConfiguration(type, serialNumber)
                              : host.setDeviceInfo(type, serialNumber, "info");
  return [shared = answer.share()] { return shared.get(); };
}

class HostTest : public testing::Test {
 protected:
  HostTest() { logTo({LogCategory::Warnings}); }
  ~HostTest() override { SetLog({}); }
  void logTo(LogMask mask) {
    SetLog([this](const std::string& line) { log.push_back(line); }, mask);
  }
  std::vector<Answer> askAll() { return {Ask(*host, 1), Ask(*host, 2), Ask(*host, 3), Ask(*host, 4)}; }

  Texts log;
  std::shared_ptr<Host> host = std::make_shared<Host>();
  FakeConnection* net = StartOnFake(*host);
};

TEST_F(HostTest, RequestsNeedAnAddressAndARunningHost) {
  Host stopped;
  const auto before = mallinfo2().uordblks;
  for (int i = 0; i < 4000; ++i) {
    const auto ask = [&](Host& any, auto... address) {
      return [&any, i, address...] { Ask(any, 1 + i % 4, address...); };
    };
    ASSERT_EQ(TextOf<InvalidArgumentException>(ask(*host, kAnyDeviceType)), "Must address specific device");
    ASSERT_EQ(TextOf<InvalidArgumentException>(ask(*host, 7U, "")), "Must address specific device");
    ASSERT_EQ(TextOf<InvalidOperationException>(ask(stopped)), "Host is not running");
  }
  EXPECT_LT(mallinfo2().uordblks, before + 100000) << "requests that were not sent are kept";
  EXPECT_TRUE(net->sent.empty());
  EXPECT_EQ(TextOf<InvalidOperationException>([&] { StartOnFake(*host); }), "Host already running");
}

TEST_F(HostTest, EachRequestGetsTheAnswerWithItsToken) {
  auto answers = askAll();
  for (std::size_t i = 0; i < 4; ++i)
    EXPECT_TRUE(net->sent[i].OpCode == i + 1 && net->sent[i].DeviceType == 7 &&
                net->sent[i].SerialNumber == "SN");
  net->put(MakeResult(7, "SN", {}, ResultCode::Other));          // nobody's
  net->put(MakeConfiguration(7, "SN", net->sent[1].Token, {}));  // not what it asked for
  for (const std::size_t i : {3U, 3U, 1U, 1U, 0U, 0U, 2U, 2U})
    net->put(MakeResult(7, "SN", net->sent[i].Token, static_cast<ResultCode>(100 + i)));
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(static_cast<std::size_t>(answers[i]()), 100 + i);

  auto query = host->getConfiguration(7, "SN");
  const DeviceConfig config{.IP{10, 0, 0, 5}, .SubnetMask{255, 0, 0, 0}, .Gateway{10, 0, 0, 1}, .DHCP = true};
  net->put(MakeConfiguration(7, "SN", net->sent.back().Token, config));
  net->put(MakeConfiguration(7, "SN", net->sent.back().Token, {}));
  const auto answer = query.get();
  EXPECT_TRUE(answer.Code == ResultCode::Success && answer.Config == config);

  answers = askAll();
  for (auto request = net->sent.end() - 4; request != net->sent.end(); ++request)
    net->put({1, 0x81, 7, "SN", request->Token, {}});
  for (const auto& failing : answers) EXPECT_EQ(TextOf<ProtocolException>(failing), "Invalid Result packet");
  const auto failing = Ask(*host, 1);
  net->put({1, 0x82, 7, "SN", net->sent.back().Token, Bytes(12)});
  EXPECT_EQ(TextOf<ProtocolException>(failing), "Invalid Configuration packet");
  EXPECT_TRUE(net->isDealtWith() && log.empty());

  Host second;  // with random numbers of its own
  auto* const secondNet = StartOnFake(second);
  second.discover(7, "");
  net->sent.push_back(secondNet->sent.front());
  std::set<RequestToken> tokens;
  for (const auto& sent : net->sent) {
    EXPECT_TRUE(sent.Token[6] >> 4 == 4 && sent.Token[8] >> 6 == 2);  // a random UUID
    tokens.insert(sent.Token);
  }
  EXPECT_EQ(tokens.size(), net->sent.size());
}

TEST_F(HostTest, EndingTellsWhoeverWaits) {
  const auto stopped = askAll();
  host->stop();
  net = StartOnFake(*host);  // and again
  const auto cancelled = askAll();
  host.reset();
  for (const auto& answer : cancelled) EXPECT_EQ(TextOf<RequestCancelledException>(answer), "Cancelled");
  for (const auto& answer : stopped)
    EXPECT_EQ(TextOf<std::future_error>(answer), std::future_error(std::future_errc::broken_promise).what());
}

TEST_F(HostTest, ListenersHearWhatDevicesSayWhateverFails) {
  std::vector<DiscoverInfo> all;
  host->addListener([&](const auto& info) { return all.push_back(info), false; });
  host->addListener([&](const auto& info) {
    if (info.SerialNumber == "standard") throw NetworkException("listener");
    if (info.SerialNumber == "other") throw 1;  // NOLINT: anything may be thrown
    return all.push_back(info), true;
  });
  const auto before = std::chrono::steady_clock::now();
  net->announce("A");
  net->announce("standard");
  net->announce("other");
  net->put(Bytes());  // the transport throws
  net->put({1, 0xA1, 7, "unreadable", {}, {1, 1, 0, 0, 99, 0, 0, 0}});
  net->put(MakeDiscoverRequest(7, "of another host", {}));
  net->announce("B", 0, 0xA2);
  ASSERT_TRUE(net->isDealtWith() && all.size() == 3);
  EXPECT_TRUE(all[0].IsReply && all[0].Available && !all[2].IsReply && !all[2].Available);
  EXPECT_TRUE(SameDevice()(all[2], {7, "B", {10, 0, 0, 9}, 1, 5000}) && all[2].Info == "hi");
  EXPECT_TRUE(before <= all[0].LastSeen && all[0].LastSeen <= std::chrono::steady_clock::now());
  const std::string text = "Host could not process a datagram: ";
  EXPECT_EQ(log, (Texts{text + "listener", text + "unknown failure", text + "receive"}));
}

TEST_F(HostTest, RemovingAListenerOrTheHostWaitsForNobody) {
  std::promise<void> entered;
  std::promise<void> release;
  std::atomic<bool> ended = false;
  const auto id = host->addListener([&](const auto&) {
    entered.set_value();  // throws in a second call
    release.get_future().wait();
    return ended = true;
  });
  net->announce("A");
  entered.get_future().wait();
  net->announce("B");
  host->removeListener(id);
  host.reset();
  EXPECT_FALSE(ended);
  release.set_value();
  EXPECT_TRUE(cppu::Threads::all().endAll(qvtest::kGenerous));
  cppu::Threads::all().reopen();
  EXPECT_TRUE(ended && log.empty());
}

TEST_F(HostTest, AListenerMayRemoveItselfAndReleaseTheHost) {
  int calls = 0;
  std::promise<void> released;
  std::size_t id = 0;
  id = host->addListener([&](const auto&) { return host->removeListener(id), ++calls > 0; });
  net->announce("A");
  ASSERT_TRUE(net->isDealtWith());
  host->addListener([&](const auto&) { return host.reset(), released.set_value(), true; });
  net->announce("B");
  released.get_future().wait();
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(cppu::Threads::all().endAll(qvtest::kGenerous));
  cppu::Threads::all().reopen();
}

TEST_F(HostTest, LogsPacketsAndDatagrams) {
  logTo({LogCategory::Packets, LogCategory::RawDatagrams});
  host->discover(7, "SN");
  net->announce("SN");
  net->put(Bytes{0xAB});
  ASSERT_TRUE(net->isDealtWith() && log.size() == 5);
  const Texts starts{
      "Host sending packet over Net 0: QV_ND_Packet { OpCode: Discover Request, ",
      "Host sending raw packet over Net 0: QV_ND_RawPacket { size: 96, data: c2 5d 00 21 50 44 4e 51  01 ",
      "Host got valid raw packet over Net 1 from 10.0.0.9: QV_ND_RawPacket { size: 104, data: c2 65 00 a1 ",
      "Host got packet over Net 1 from 10.0.0.9: QV_ND_Packet { OpCode: Discover Reply, ",
      "Host got invalid raw packet over Net 1 from 10.0.0.9: QV_ND_RawPacket { size: 1, data: ab }"};
  for (std::size_t i = 0; i < 5; ++i) EXPECT_TRUE(log[i].starts_with(starts[i])) << log[i];
}

}  // namespace
}  // namespace quorvind
