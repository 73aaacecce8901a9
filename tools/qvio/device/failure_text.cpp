#include "device/failure_text.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "quorvio/quorvio.h"
#include "terminal/failure.h"
#include "terminal/text.h"
#include "util/failure.h"

namespace qvio_tool {
namespace {

bool IsUsb(const std::string& locator) { return locator.starts_with("usb:"); }

std::string NameOf(const passwd* user, uid_t id) {
  return user != nullptr ? user->pw_name : std::to_string(id);
}
std::string NameOf(const group* group, gid_t id) {
  return group != nullptr ? group->gr_name : std::to_string(id);
}

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
      return IsUsb(options.locator) ? "may you use the device, and is the kernel's ftdi_sio unloaded?" : "";
    case QV_IO_ERROR_DRIVER_UNAVAILABLE:
      return "install FTDI's libraries libftd2xx.so and libftchipid.so";
    default:
      return "";
  }
}

}  // namespace

std::string GroupOf(const struct stat& file) { return NameOf(::getgrgid(file.st_gid), file.st_gid); }

bool GroupMayUse(const struct stat& file) {
  return (file.st_mode & S_IRGRP) != 0 && (file.st_mode & S_IWGRP) != 0;
}

std::string ForbiddenHint(const std::string& path, const struct stat& file) {
  std::array<char, 16> mode{};
  std::snprintf(mode.data(), mode.size(), "%04o", file.st_mode & 07777U);
  const auto groupName = GroupOf(file);
  return path + " belongs to " + NameOf(::getpwuid(file.st_uid), file.st_uid) + ":" + groupName + ", mode " +
         mode.data() + (GroupMayUse(file) ? "; add yourself to " + groupName : "; ask its owner for access");
}

std::string FailureText() { return OneLine(qvio::LastFailureReason()); }

CommandFailure OpenFailure(uint32_t result, const ChannelOptions& options) {
  const bool isUsage = result == QV_IO_ERROR_INVALID_LOCATOR || result == QV_IO_ERROR_INVALID_ARGUMENT;
  return CommandFailure(WithHint(FailureText(), HintFor(result, options)), isUsage ? WrongUsage : Refused);
}

}  // namespace qvio_tool
