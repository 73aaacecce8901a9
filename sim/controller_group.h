#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>

#include "nd/connection.h"
#include "sim/discovery_side.h"
#include "sim/event_loop.h"
#include "sim/network_device.h"

namespace qvsim {

/// How the controllers of a group behave in discovery.
struct GroupSettings {
  std::string address = "127.0.0.1";     ///< of the local interface they are on
  std::chrono::milliseconds spread{20};  ///< answers come at random moments within this time
  uint32_t seed = 1;                     ///< of these moments and of what is dropped
  DiscoveryFaults faults = {};
  std::chrono::milliseconds longestWait{60000};  ///< for a datagram in one call of the transport
};

/// Any number of network controllers on one interface: they answer discovery, announce themselves when they
/// appear, change or leave, keep what is configured, and serve their TCP side. Any thread; the loop must
/// outlive it.
class ControllerGroup {
 public:
  /// Throws NetworkException, or Failure for a text that is not an address.
  ControllerGroup(EventLoop& loop, const GroupSettings& settings);
  ControllerGroup(const ControllerGroup&) = delete;
  ControllerGroup& operator=(const ControllerGroup&) = delete;
  ~ControllerGroup();

  /// A new controller, which announces itself. Returns its TCP port.
  /// @param port  0: the system chooses
  uint16_t add(const DiscoverySide::Identity& identity, MakeResponder makeResponder, uint16_t port = 0);

  /// The next five return false when no controller has the serial number.
  bool setAvailable(const std::string& serialNumber, bool available);
  bool leave(const std::string& serialNumber);     ///< announces that it leaves
  bool comeBack(const std::string& serialNumber);  ///< after it has left
  bool vanish(const std::string& serialNumber);    ///< leaves without an announcement
  bool changePort(const std::string& serialNumber);

  /// Of the whole group.
  void setFaults(const DiscoveryFaults& faults);

  /// Discovery requests that were heard, each network counted.
  [[nodiscard]] std::size_t requestsHeard() const { return requestsHeard_; }

 private:
  struct Member {
    DiscoverySide discovery;
    MakeResponder makeResponder;
    std::unique_ptr<NetworkDevice> tcp;  ///< null: it has left
  };

  void receive();
  void receiveOnce();
  bool change(const std::string& serialNumber, const std::function<void(Member&)>& action);
  std::unique_ptr<NetworkDevice> listen(const MakeResponder& makeResponder, uint16_t port);

  // Loop's thread only.
  void handle(const quorvind::QV_ND_Packet& request, uint32_t networkId);
  void answer(Member& member, const quorvind::QV_ND_Packet& request, uint32_t networkId);
  void announce(const Member& member);
  void sendLater(std::chrono::milliseconds time, uint32_t networkId, const quorvind::QV_ND_Packet& packet);
  void send(uint32_t networkId, const quorvind::Bytes& datagram);

  EventLoop& loop_;
  std::string address_;
  std::shared_ptr<quorvind::Connection> connection_;
  const std::chrono::milliseconds longestWait_;
  std::atomic<std::size_t> requestsHeard_ = 0;
  std::atomic<std::size_t> waiting_ = 0;  ///< requests on their way to the loop's thread
  std::atomic<bool> ended_ = false;
  // Loop's thread only:
  std::chrono::milliseconds spread_;
  DiscoveryFaults faults_;
  std::mt19937 random_;
  unsigned malformedSent_ = 0;
  std::map<std::string, Member> members_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);  ///< timers hold it weakly

  std::thread receiver_;
};

}  // namespace qvsim
