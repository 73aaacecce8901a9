#include "device/failure_text.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "device/permissions.h"
#include "quorvio/quorvio.h"
#include "terminal/failure.h"
#include "terminal/text.h"
#include "util/failure.h"

namespace qvio_tool {
namespace {

bool IsUsb(const std::string& locator) { return locator.starts_with("usb:"); }

std::string SerialPortHint(const std::string& path) {
  struct stat file {};
  if (::stat(path.c_str(), &file) != 0) return "is the device plugged in?";
  const bool forbidden = ::access(path.c_str(), R_OK | W_OK) != 0 && errno == EACCES;
  return forbidden ? ForbiddenHint(path, file) : "";
}

std::string SpeedHint(const ChannelOptions& options) {
  return options.value("baudrate") ? "" : "give the speed: -o \"baudrate 115200\"";
}

std::string NotFoundHint(const ChannelOptions& options) {
  if (IsUsb(options.locator))
    return "another program may have opened it; \"qvio list --kind usb --all\" lists all chips";
  if (!options.locator.starts_with("network:sn:"))
    return "is the device switched on, and is the port correct?";
  return "\"qvio list\" lists the devices that answer; --iface ADDRESS selects the interface, --timeout MS "
         "waits "
         "longer";
}

std::string DriverHint() {
  const std::string hint = "install FTDI's libraries libftd2xx.so and libftchipid.so";
  const bool hasOurs = ::access(QVIO_DRIVER_FOLDER "/libftd2xx.so", R_OK) == 0;
  return hasOurs ? hint + ", or try our experimental ones: LD_LIBRARY_PATH=" QVIO_DRIVER_FOLDER : hint;
}

/// What to do next; empty where the reason says enough.
std::string HintFor(uint32_t result, const ChannelOptions& options) {
  switch (result) {
    case QV_IO_ERROR_INVALID_LOCATOR:
      return kLocatorForms;
    case QV_IO_ERROR_DEVICE_NOT_FOUND:
      return NotFoundHint(options);
    case QV_IO_ERROR_INVALID_ARGUMENT:
      return options.isSerial() || IsUsb(options.locator) ? SpeedHint(options) : "";
    case QV_IO_ERROR_DRIVER_FAILURE:
      if (options.isSerial()) return SerialPortHint(options.serialPath());
      return IsUsb(options.locator)
                 ? "may you use the device, and has the kernel taken it? \"qvio doctor\" finds out"
                 : "";
    case QV_IO_ERROR_DRIVER_UNAVAILABLE:
      return DriverHint();
    default:
      return "";
  }
}

}  // namespace

std::string FailureText() { return OneLine(qvio::LastFailureReason()); }

CommandFailure OpenFailure(uint32_t result, const ChannelOptions& options) {
  const bool isUsage = result == QV_IO_ERROR_INVALID_LOCATOR || result == QV_IO_ERROR_INVALID_ARGUMENT;
  return CommandFailure(WithHint(FailureText(), HintFor(result, options)), isUsage ? WrongUsage : Refused);
}

}  // namespace qvio_tool
