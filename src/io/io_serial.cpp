#include "io/io_serial.h"

#include <fcntl.h>
#include <pthread.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <limits>
#include <string>
#include <utility>

#include "options/locator.h"
#include "options/option_sets.h"
#include "util/failure.h"
#include "util/system_call.h"

namespace qvio {
namespace {

constexpr DescriptorKind kSerialKind{.nothingReady = QV_IO_OK,
                                     .peerReset = QV_IO_ERROR_TRANSMIT_FAILED,
                                     .largestWrite = std::numeric_limits<std::ptrdiff_t>::max(),
                                     .socket = false,
                                     .failedReadIsDelivered = true};

struct Speed {
  uint32_t baud;
  speed_t constant;
};
constexpr std::array<Speed, 18> kSpeeds{{{50, B50},
                                         {75, B75},
                                         {110, B110},
                                         {134, B134},
                                         {150, B150},
                                         {200, B200},
                                         {300, B300},
                                         {600, B600},
                                         {1200, B1200},
                                         {1800, B1800},
                                         {2400, B2400},
                                         {4800, B4800},
                                         {9600, B9600},
                                         {19200, B19200},
                                         {38400, B38400},
                                         {57600, B57600},
                                         {115200, B115200},
                                         {230400, B230400}}};

// CLOCAL: modem lines are ignored, since many devices do not drive them.
constexpr tcflag_t kControlFlags = CS8 | CREAD | CLOCAL;

// The values of IXON | IXOFF, but in the control word, where they read as HUPCL | CBAUDEX: applications were
// built against lines set up like this, and an input flag here would change what they receive.
constexpr tcflag_t kXonXoffControlFlags = 0x1400;

speed_t SpeedConstant(uint32_t baudrate) {
  auto constant = kSpeeds.front().constant;
  for (const auto& speed : kSpeeds) {
    if (speed.baud <= baudrate) constant = speed.constant;
  }
  return constant;
}

const std::string& DevicePath(const Locator& locator) {
  Require(locator.fields.size() == 1, QV_IO_ERROR_INVALID_LOCATOR, "not serial:PATH: %", {locator.text});
  return locator.fields.front();
}

/// Blocks SIGTTOU on the calling thread: a process in the background that sets up its controlling terminal
/// would be stopped by it.
class TerminalStopBlocked {
 public:
  TerminalStopBlocked() {
    sigset_t terminalStop;
    sigemptyset(&terminalStop);
    sigaddset(&terminalStop, SIGTTOU);
    pthread_sigmask(SIG_BLOCK, &terminalStop, &before_);
  }
  TerminalStopBlocked(const TerminalStopBlocked&) = delete;
  TerminalStopBlocked& operator=(const TerminalStopBlocked&) = delete;
  ~TerminalStopBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

}  // namespace

termios LineSettings(uint32_t baudrate, bool xonxoff) {
  termios settings{};  // raw: no input, output or local flag; VMIN and VTIME 0
  const auto speed = SpeedConstant(baudrate);
  ::cfsetispeed(&settings, speed);
  ::cfsetospeed(&settings, speed);
  settings.c_cflag |= kControlFlags | (xonxoff ? kXonXoffControlFlags : 0);
  return settings;
}

IoSerial::IoSerial(ChannelArguments arguments) : DescriptorChannel(kSerialKind, std::move(arguments)) {}

cppu::UniqueFd IoSerial::openDescriptor() const {
  const auto& path = DevicePath(locator());
  const auto settings = ReadSerialOptions(options());
  Require(settings.baudrate != 0, QV_IO_ERROR_INVALID_ARGUMENT, "baudrate is not given or 0");

  auto fd = cppu::AboveStandardStreams(cppu::UniqueFd(
      cppu::Uninterrupted([&] { return ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC); })));
  Require(static_cast<bool>(fd), QV_IO_ERROR_DRIVER_FAILURE, "cannot open %", {path}, errno);
  const auto line = LineSettings(settings.baudrate, settings.xonxoff);
  const TerminalStopBlocked fromTheBackground;
  // Flushes: bytes from before the open belong to nobody.
  const auto applied = cppu::Uninterrupted([&] { return ::tcsetattr(fd.get(), TCSAFLUSH, &line); });
  Require(applied == 0 || errno != ENOTTY, QV_IO_ERROR_DRIVER_FAILURE, "% is not a serial port", {path});
  Require(applied == 0, QV_IO_ERROR_DRIVER_FAILURE, "cannot set up %", {path}, errno);
  return fd;
}

std::string IoSerial::property(std::string_view /*key*/) { return {}; }

}  // namespace qvio
