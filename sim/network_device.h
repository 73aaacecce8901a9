#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "sim/byte_stream.h"
#include "sim/event_loop.h"
#include "sim/responder.h"
#include "util/unique_fd.h"

namespace qvsim {

/// The TCP side of a network controller: takes any number of connections. Any thread; the loop must outlive
/// it.
class NetworkDevice {
 public:
  /// Listens at once. Throws std::system_error when it cannot, std::invalid_argument for a bad address.
  /// @param address  dotted IPv4 address of a local interface
  /// @param port     0: the system chooses
  NetworkDevice(EventLoop& loop, const std::string& address, uint16_t port, MakeResponder makeResponder);
  NetworkDevice(const NetworkDevice&) = delete;
  NetworkDevice& operator=(const NetworkDevice&) = delete;
  ~NetworkDevice();

  [[nodiscard]] uint16_t port() const { return port_; }
  [[nodiscard]] std::size_t connections();

  /// Whether a connection has bytes waiting that it does not read.
  [[nodiscard]] bool hasUnread();

  /// Faults, of the connections that there are.
  void setReading(Reading reading);  ///< and of later ones
  void sendForever();
  void closeAll();      ///< orderly
  void resetAll();      ///< the peers see a reset
  void halfCloseAll();  ///< sends no more, still receives

 private:
  void accept();
  template <class Action>
  void forEach(Action action);

  EventLoop& loop_;
  MakeResponder makeResponder_;
  cppu::UniqueFd listener_;
  uint16_t port_ = 0;
  // Loop's thread only:
  Reading reading_ = Reading::Answering;
  std::map<int, std::unique_ptr<ByteStream>> streams_;
};

}  // namespace qvsim
