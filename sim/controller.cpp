#include "sim/controller.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <utility>

namespace qvsim {
namespace {

constexpr double kLargestPosition = 1000;
constexpr std::size_t kLongestLine = 256;

std::string FormatPosition(double position) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.3f", position);
  return text.data();
}

}  // namespace

Controller::Controller(ControllerSettings settings, Clock clock)
    : settings_(std::move(settings)), clock_(std::move(clock)), moveBegan_(clock_()) {}

std::string Controller::execute(std::string_view command) {
  if (command == "*IDN?") return "QUORVI,DRV-SIM," + settings_.serialNumber + ",1.0";
  if (command == "POS?") return FormatPosition(position());
  if (command == "MOV?") return position() == target_ ? "0" : "1";
  if (command == "STOP") {
    start_ = target_ = position();
    return "OK";
  }
  if (command.starts_with("MOV ")) return moveTo(command.substr(4));
  return "ERR 1 unknown command";
}

std::string Controller::moveTo(std::string_view argument) {
  double target = 0;
  const auto* const end = argument.data() + argument.size();
  const auto [rest, error] = std::from_chars(argument.data(), end, target);
  if (error != std::errc{} || rest != end || !std::isfinite(target)) return "ERR 2 not a number";
  if (std::abs(target) > kLargestPosition) return "ERR 3 position out of range";
  start_ = position();
  target_ = target;
  moveBegan_ = clock_();
  return "OK";
}

double Controller::position() const {
  if (settings_.speed <= 0) return target_;
  const std::chrono::duration<double> moving = clock_() - moveBegan_;
  const double way = std::min(std::abs(target_ - start_), settings_.speed * moving.count());
  return start_ == target_ || way >= std::abs(target_ - start_)
             ? target_
             : start_ + std::copysign(way, target_ - start_);
}

std::string LineProtocol::answer(std::string_view bytes) {
  std::string answers;
  for (const char byte : bytes) {
    if (byte == '\r' || byte == '\n') {
      answers += endOfLine();
    } else if (line_.size() < kLongestLine) {
      line_ += byte;
    } else {
      tooLong_ = true;
    }
  }
  return answers;
}

std::string LineProtocol::endOfLine() {
  const auto line = std::exchange(line_, {});
  if (std::exchange(tooLong_, false)) return "ERR 4 line too long\r\n";
  if (line.empty()) return {};  // the second half of CR LF
  return controller_->execute(line) + "\r\n";
}

MakeResponder ServeController(const ControllerSettings& settings) {
  return [controller = std::make_shared<Controller>(settings)] {
    return std::make_unique<LineProtocol>(controller);
  };
}

}  // namespace qvsim
