#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "device/polled_channel.h"
#include "terminal/received_text.h"

namespace qvio_tool {

/// What is exchanged with a device as lines with their local time, name of the device, and direction:
///
///     2026-05-04 13:02:01.123 > POS?        sent
///     2026-05-04 13:02:01.125 < 3.000       received; the time of the line's first byte
///     2026-05-04 13:05:00.000 ! the device is gone: connection lost (result 7)
class DeviceLog {
 public:
  using Sink = std::function<void(std::string_view lines)>;

  /// @param name  goes before the direction; may be empty
  DeviceLog(Sink sink, Form form, const std::string& name = {});

  void addReceived(std::string_view bytes) { sink_(received_.add(bytes, Clock::now())); }
  void addSent(std::string_view bytes);
  void addNotice(std::string_view text);

  /// When showDue() has something to do.
  [[nodiscard]] cppu::Deadline due() const { return received_.due(); }

  /// Adds an unfinished line whose time has come.
  void addDue() {
    if (cppu::HasPassed(due())) addRest();
  }

  /// Adds the unfinished line.
  void addRest() { sink_(received_.takeRest()); }

 private:
  [[nodiscard]] std::string begin(char direction) const;

  const Sink sink_;
  const Form form_;
  const std::string name_;
  ReceivedText received_;
};

}  // namespace qvio_tool
