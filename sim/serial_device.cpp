#include "sim/serial_device.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <utility>

#include "sim/checked.h"

namespace qvsim {
namespace {

cppu::UniqueFd OpenMaster() {
  cppu::UniqueFd fd(
      Checked(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK), "no pseudo terminal"));
  Checked(::grantpt(fd.get()), "grantpt");
  Checked(::unlockpt(fd.get()), "unlockpt");
  return fd;
}

std::string PathOf(int master) {
  std::array<char, 64> path{};
  Checked(-::ptsname_r(master, path.data(), path.size()), "ptsname_r");
  return path.data();
}

/// Opens the programs' end raw, so that no echo answers before a program has set its line up.
cppu::UniqueFd OpenRaw(const std::string& path) {
  cppu::UniqueFd fd(
      Checked(::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), "cannot open the pseudo terminal"));
  termios settings{};
  Checked(::tcgetattr(fd.get(), &settings), "tcgetattr");
  ::cfmakeraw(&settings);
  Checked(::tcsetattr(fd.get(), TCSANOW, &settings), "tcsetattr");
  return fd;
}

}  // namespace

SerialDevice::SerialDevice(EventLoop& loop, const MakeResponder& makeResponder) : loop_(loop) {
  auto master = OpenMaster();
  path_ = PathOf(master.get());
  heldOpen_ = OpenRaw(path_);
  loop_.run([&] {
    stream_ =
        std::make_unique<ByteStream>(loop_, std::move(master), makeResponder(), [this] { stream_.reset(); });
  });
}

SerialDevice::~SerialDevice() { hangUp(); }

bool SerialDevice::hasUnread() {
  bool unread = false;
  loop_.run([&] { unread = stream_ && stream_->hasUnread(); });
  return unread;
}

void SerialDevice::setReading(Reading reading) {
  loop_.run([&] {
    if (stream_) stream_->setReading(reading);
  });
}

void SerialDevice::sendForever() {
  loop_.run([&] {
    if (stream_) stream_->sendForever();
  });
}

void SerialDevice::hangUp() {
  loop_.run([this] { stream_.reset(); });
}

}  // namespace qvsim
