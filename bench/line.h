#pragma once

#include <cstdint>
#include <string>

#include "descriptor.h"

namespace qvbench {

enum class Line { Tcp, PseudoTerminal };

/// Where the near end of a line is opened: a port on loopback, or the path of a pseudo terminal.
class Address {
 public:
  explicit Address(uint16_t port) : port_(port) {}
  explicit Address(std::string path) : path_(std::move(path)) {}

  [[nodiscard]] std::string locator() const;
  [[nodiscard]] const char* options() const { return path_.empty() ? "" : "baudrate 230400"; }

  /// A blocking descriptor of the near end, as plain code opens it: a terminal is raw, a socket as it comes.
  [[nodiscard]] Descriptor open() const;

 private:
  [[nodiscard]] Descriptor openTerminal() const;
  [[nodiscard]] Descriptor openSocket() const;

  std::string path_;  ///< empty: TCP
  uint16_t port_ = 0;
};

/// The far end of a line before the near end is there.
class Listener {
 public:
  explicit Listener(Line line);

  [[nodiscard]] Address address() const;

  /// Waits for the near end of a TCP line; a pseudo terminal is its own far end and can be had once.
  [[nodiscard]] Descriptor accept();

 private:
  Line line_;
  Descriptor fd_;
};

}  // namespace qvbench
