#include "config_check.h"

#include <algorithm>
#include <bit>

#include "text_codec.h"

namespace qvio_tool {
namespace {

using quorvind::IP4;
using quorvind::IP4FromString;
using quorvind::IP4ToString;

constexpr std::size_t kLongestText = 63;  // the protocol's, for serial number and info

uint32_t Number(const IP4& address) {
  uint32_t number = 0;
  for (const auto byte : address) number = number << 8U | byte;
  return number;
}

bool IsContiguous(const IP4& mask) {
  const uint32_t number = Number(mask);
  return std::countl_one(number) + std::countr_zero(number) == 32 || number == 0xFFFFFFFF;
}

std::string LengthProblem(const std::string& text) {
  if (text.size() <= kLongestText) return {};
  return "longer than " + std::to_string(kLongestText) + " bytes";
}

}  // namespace

CLI::Validator AddressText() {
  return {[](std::string& text) {
            return IP4FromString(text) ? std::string() : OneLine(text) + " is no address like 192.168.0.10";
          },
          "ADDRESS"};
}

CLI::Validator MaskText() {
  return {[](std::string& text) {
            const auto mask = IP4FromString(text);
            return mask && IsContiguous(*mask) ? std::string()
                                               : OneLine(text) + " is no subnet mask like 255.255.255.0";
          },
          "MASK"};
}

CLI::Validator SerialNumberText() {
  return {
      [](std::string& text) { return text.empty() ? "a serial number is not empty" : LengthProblem(text); },
      ""};
}

CLI::Validator DeviceInfoText() {
  return {[](std::string& text) {
            const auto isPrintable = [](char character) { return character >= 0x20 && character <= 0x7E; };
            if (!std::ranges::all_of(text, isPrintable)) return std::string("not all printable ASCII");
            return LengthProblem(text);
          },
          ""};
}

std::string ProblemOf(const quorvind::DeviceConfig& config) {
  const auto address = Number(config.IP);
  const auto mask = Number(config.SubnetMask);
  const auto host = ~mask;
  const auto subnet = IP4ToString(config.IP) + " with mask " + IP4ToString(config.SubnetMask);
  if (address == 0 || config.IP[0] >= 224) return IP4ToString(config.IP) + " is no address of one device";
  if (mask == 0 || !IsContiguous(config.SubnetMask)) {
    return IP4ToString(config.SubnetMask) + " is no subnet mask";
  }
  if (host > 1 && ((address & host) == 0 || (address & host) == host)) {
    return subnet + " is the address of the subnet or its broadcast address";
  }
  const auto gateway = Number(config.Gateway);
  if (gateway != 0 && ((gateway ^ address) & mask) != 0) {
    return "the gateway " + IP4ToString(config.Gateway) + " is outside the subnet of " + subnet +
           "; give another --gateway, 0.0.0.0 for none";
  }
  return {};
}

}  // namespace qvio_tool
