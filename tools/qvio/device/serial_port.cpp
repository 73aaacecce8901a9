#include "device/serial_port.h"

#include <asm/termbits.h>  // instead of termios.h: only its TCGETS2 gives the speed as a number
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <optional>

#include "device/processes.h"
#include "terminal/failure.h"

namespace qvio_tool {
namespace {

std::string HolderOf(int fd) {
  struct stat file {};
  ::fstat(fd, &file);
  const auto holder = LockHolder(file);
  return holder ? holder->text() : "another process";
}

std::optional<unsigned> RealSpeed(int fd) {
  termios2 line{};
  if (::ioctl(fd, TCGETS2, &line) != 0) return {};
  return line.c_ospeed;
}

}  // namespace

SerialPortLock::SerialPortLock(const ChannelOptions& options) {
  if (!options.isSerial()) return;
  fd_ = cppu::UniqueFd(::open(options.serialPath().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!fd_) return;  // the library's open will fail the same way, with a reason
  if (::flock(fd_.get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return;
  throw CommandFailure(options.locator + " is in use by " + HolderOf(fd_.get()));
}

void SerialPortLock::reportSurprises(const ChannelOptions& options) const {
  if (!fd_) return;
  const auto asked = options.value("baudrate");
  const auto real = RealSpeed(fd_.get());
  if (asked && real && *asked != std::to_string(*real)) {
    std::fprintf(stderr, "qvio: note: %s runs at %u baud, not at %s\n", options.serialPath().c_str(), *real,
                 asked->c_str());
  }
  const auto xonxoff = options.value("xonxoff");
  if (xonxoff && *xonxoff != "false" && *xonxoff != "off" && *xonxoff != "0") {
    std::fputs("qvio: note: xonxoff does not switch flow control on; below 57600 baud it changes the speed\n",
               stderr);
  }
}

}  // namespace qvio_tool
