#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "sim/responder.h"

namespace qvsim {

/// The properties of one simulated controller.
struct ControllerSettings {
  std::string serialNumber = "SIM-0001";
  double speed = 0;  ///< units a second; 0: a move is done at once
};

/// A motion controller with one axis. Commands are single lines, each gets one answer line:
///
///     *IDN?     QUORVI,DRV-SIM,<serial number>,1.0
///     MOV <x>   OK; moves to position x, -1000 to 1000
///     POS?      the position now, three decimals
///     MOV?      1 while it moves, else 0
///     STOP      OK; stays where it is
///
/// Anything else is answered with "ERR <number> <text>".
class Controller {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  explicit Controller(ControllerSettings settings, Clock clock = std::chrono::steady_clock::now);

  /// The answer to one command, both without line end.
  std::string execute(std::string_view command);

 private:
  std::string moveTo(std::string_view argument);
  [[nodiscard]] double position() const;

  ControllerSettings settings_;
  Clock clock_;
  double start_ = 0;
  double target_ = 0;
  std::chrono::steady_clock::time_point moveBegan_;
};

/// A connection to a controller: lines end in CR, LF or both, answers in CR LF. Several connections may
/// share one controller.
class LineProtocol final : public Responder {
 public:
  explicit LineProtocol(std::shared_ptr<Controller> controller) : controller_(std::move(controller)) {}
  std::string answer(std::string_view bytes) override;

 private:
  std::string endOfLine();

  std::shared_ptr<Controller> controller_;
  std::string line_;
  bool tooLong_ = false;
};

/// Connections that all talk to one new controller.
MakeResponder ServeController(const ControllerSettings& settings);

}  // namespace qvsim
