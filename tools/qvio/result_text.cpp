#include "result_text.h"

#include <fcntl.h>
#include <grp.h>
#include <netdb.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "option_text.h"
#include "quorvio/quorvio.h"
#include "util/unique_fd.h"

namespace qvio_tool {
namespace {

constexpr std::array<std::string_view, 16> kNames{
    "success",          "no free handle",   "invalid locator",
    "device not found", "invalid argument", "driver or system failure",
    "invalid handle",   "connection lost",  "receive failed",
    "transmit failed",  "not supported",    "property unavailable",
    "buffer too small", "query failed",     "driver unavailable",
    "wrong event type"};

constexpr const char* kLocatorForms =
    "a locator is serial:PATH, network:HOST:PORT, network:sn:SERIAL, usb:sn:SERIAL, usb:id:NUMBER or "
    "usb:ix:INDEX";

constexpr const char* kNoDriver = "FTDI's libraries libftd2xx.so and libftchipid.so could not be loaded";

bool IsSerial(std::string_view locator) { return locator.starts_with(kSerialWord); }
bool IsUsb(std::string_view locator) { return locator.starts_with("usb:"); }

std::string NameOf(const passwd* user, uid_t id) {
  return user != nullptr ? user->pw_name : std::to_string(id);
}
std::string NameOf(const group* group, gid_t id) {
  return group != nullptr ? group->gr_name : std::to_string(id);
}

std::string ExplainForbidden(const std::string& path, const struct stat& file) {
  std::array<char, 16> mode{};
  std::snprintf(mode.data(), mode.size(), "%04o", file.st_mode & 07777U);
  const auto groupName = NameOf(::getgrgid(file.st_gid), file.st_gid);
  const bool groupMay = (file.st_mode & S_IRGRP) != 0 && (file.st_mode & S_IWGRP) != 0;
  return path + " belongs to " + NameOf(::getpwuid(file.st_uid), file.st_uid) + ":" + groupName + ", mode " +
         mode.data() + (groupMay ? "; add yourself to " + groupName : "; ask its owner for access");
}

std::string ExplainSerialPort(const std::string& path) {
  struct stat file {};
  if (::stat(path.c_str(), &file) != 0)
    return path + ": " + std::strerror(errno) + "; is the device plugged in?";
  if (S_ISDIR(file.st_mode)) return path + " is a directory";
  const cppu::UniqueFd fd(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!fd && errno == EACCES) return ExplainForbidden(path, file);
  if (!fd) return path + ": " + std::strerror(errno);
  if (::isatty(fd.get()) == 0) return path + " is not a serial port";
  return path + " refuses the line settings";
}

std::string ExplainSerialNumber(const std::string& options) {
  std::string text = "discovery has found no device with this serial number";
  if (!OptionValue(options, "iface")) text += "; to search for it, give -o \"iface network:ADDRESS\"";
  return text + "; \"qvio list\" shows the devices there are";
}

std::string ExplainHost(std::string_view locator, const std::string& options) {
  auto host = std::string(locator.substr(locator.find(':') + 1));
  if (host.starts_with("sn:")) return ExplainSerialNumber(options);
  host = host.substr(0, host.find(':'));
  addrinfo hints{};
  hints.ai_family = AF_INET;
  addrinfo* found = nullptr;
  const int error = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
  if (error != 0) return host + ": " + ::gai_strerror(error);
  ::freeaddrinfo(found);
  return host + " does not take the connection; is the device switched on, and the port right?";
}

std::string ExplainArgument(std::string_view locator, const std::string& options) {
  if (IsSerial(locator) && !OptionValue(options, "baudrate")) return "give the speed: -o \"baudrate 115200\"";
  if (IsUsb(locator))
    return "give the speed (-o \"baudrate 115200\") if the product has none, and options with valid values";
  if (IsSerial(locator)) return "an option is unknown or its value is no number above 0";
  return "give a port from 1 to 65535 (network:HOST:PORT or -o \"port N\"), and options with valid values";
}

std::string ExplainSystemFailure(const std::string& locator) {
  if (IsSerial(locator)) return ExplainSerialPort(SerialPath(locator));
  if (IsUsb(locator))
    return "FTDI's driver refuses; may you use the device, and is the kernel's ftdi_sio unloaded?";
  return "the system gives no socket or thread";
}

std::string ExplainNotFound(const std::string& locator, const std::string& options) {
  if (!IsUsb(locator)) return ExplainHost(locator, options);
  return "no such chip, or another program has it open; \"qvio list --kind usb --all\" shows those there are";
}

std::string Explain(uint32_t result, const std::string& locator, const std::string& options) {
  switch (result) {
    case QV_IO_ERROR_INVALID_LOCATOR:
      return kLocatorForms;
    case QV_IO_ERROR_DEVICE_NOT_FOUND:
      return ExplainNotFound(locator, options);
    case QV_IO_ERROR_INVALID_ARGUMENT:
      return ExplainArgument(locator, options);
    case QV_IO_ERROR_DRIVER_FAILURE:
      return ExplainSystemFailure(locator);
    case QV_IO_ERROR_DRIVER_UNAVAILABLE:
      return kNoDriver;
    default:
      return "";
  }
}

}  // namespace

std::string ResultText(uint32_t result) {
  const auto name = result < kNames.size() ? std::string(kNames.at(result)) : std::string("unknown result");
  return name + " (result " + std::to_string(result) + ")";
}

std::string ExplainOpenFailure(uint32_t result, const std::string& locator, const std::string& options) {
  const auto hint = Explain(result, locator, options);
  return "cannot open " + locator + ": " + ResultText(result) + (hint.empty() ? "" : ": " + hint);
}

std::string ExplainSendFailure(uint32_t result, const std::string& locator) {
  const bool refused = result == QV_IO_ERROR_TRANSMIT_FAILED && locator.starts_with("network:");
  return "cannot send: " + ResultText(result) +
         (refused ? ": the peer has refused or closed the connection" : "");
}

std::string ExplainListFailure(uint32_t result) {
  const auto text = "cannot list: " + ResultText(result);
  return result == QV_IO_ERROR_DRIVER_UNAVAILABLE ? text + ": " + kNoDriver : text;
}

}  // namespace qvio_tool
