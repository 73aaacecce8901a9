#include "driver/channel_list.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <tuple>

#include "driver/system_files.h"
#include "driver/tty_users.h"

namespace qvusb {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDevices = "sys/bus/usb/devices";
constexpr uint16_t kVendor = 0x0403;
constexpr uint32_t kHighSpeed = 480;  ///< Mbit/s

uint32_t Decimal(const fs::path& file) {
  return static_cast<uint32_t>(std::strtoul(Line(file).c_str(), nullptr, 10));
}
uint16_t Hexadecimal(const fs::path& file) {
  return static_cast<uint16_t>(std::strtoul(Line(file).c_str(), nullptr, 16));
}

/// None for anything but a chip of a known type.
std::optional<Channel> ReadChip(const fs::path& folder) {
  Channel chip;
  chip.vendor = Hexadecimal(folder / "idVendor");
  if (chip.vendor != kVendor) return {};
  const auto* const kind = KindOf(Hexadecimal(folder / "bcdDevice"));
  if (kind == nullptr) return {};
  chip.kind = *kind;
  chip.device = folder.filename();
  chip.bus = Decimal(folder / "busnum");
  chip.address = Decimal(folder / "devnum");
  chip.product = Hexadecimal(folder / "idProduct");
  chip.runsAtHighSpeed = Decimal(folder / "speed") >= kHighSpeed;
  chip.description = Line(folder / "product");
  chip.serialNumber = Line(folder / "serial");
  return chip;
}

/// The chips of several channels add a letter to both texts.
Channel ReadChannel(const fs::path& interface, const Channel& chip, uint8_t number) {
  auto channel = chip;
  channel.number = number;
  if (chip.kind.channels > 1) {
    const auto letter = static_cast<char>('A' + number);
    channel.description.append(1, ' ').append(1, letter);
    channel.serialNumber += letter;
  }
  const auto endpoint = "ep_8" + std::to_string(2 * number + 1);
  channel.packetSize = Hexadecimal(interface / endpoint / "wMaxPacketSize");
  channel.kernelDriver = LinkedName(interface / "driver");
  for (const auto& name : Entries(interface))
    if (name.starts_with("ttyUSB")) channel.tty = name;
  return channel;
}

}  // namespace

std::vector<Channel> ListChannels(const fs::path& root) {
  std::vector<Channel> channels;
  for (const auto& name : Entries(root / kDevices)) {
    const auto chip = ReadChip(root / kDevices / name);
    for (uint8_t number = 0; chip && number < chip->kind.channels; ++number) {
      const auto interface = root / kDevices / (name + ":1." + std::to_string(number));
      auto channel = ReadChannel(interface, *chip, number);
      if (channel.packetSize > 0) channels.push_back(std::move(channel));  // else it is about to go
    }
  }
  std::optional<TtyUsers> users;
  for (auto& channel : channels) {
    if (!channel.tty.empty() && !users) users.emplace(root);
    channel.isOpen = channel.kernelDriver == "usbfs" || (!channel.tty.empty() && users->use(channel.tty));
  }
  std::ranges::sort(channels, {}, [](const Channel& channel) {
    return std::tuple(channel.bus, channel.address, channel.number);
  });
  return channels;
}

}  // namespace qvusb
