#include "discovery_options.h"

#include <map>

#include "nd/interface_texts.h"
#include "nd/log.h"
#include "output.h"
#include "result_text.h"
#include "text_codec.h"

namespace qvio_tool {
namespace {

using quorvind::LogCategory;
using quorvind::LogMask;

const std::map<std::string, LogMask>& TraceMasks() {
  static const std::map<std::string, LogMask> masks{
      {"packets", {LogCategory::Warnings, LogCategory::Packets}},
      {"raw", {LogCategory::Warnings, LogCategory::Packets, LogCategory::RawDatagrams}}};
  return masks;
}

/// "network:ADDRESS" or "network:all"; the command line may leave the word out.
std::string InterfaceText(const std::string& given) {
  constexpr std::string_view kWord = "network:";
  const auto address = given.starts_with(kWord) ? given.substr(kWord.size()) : given;
  const auto ip4 = quorvind::IP4FromString(address);
  if (address != "all" && (!ip4 || *ip4 == quorvind::IP4{})) {
    throw CommandFailure("--iface " + given +
                         " is no address of an interface; \"qvio ifaces\" shows those there are");
  }
  return std::string(kWord) + address;
}

}  // namespace

void DiscoveryOptions::addTo(CLI::App& command) {
  command
      .add_option("--iface", ifaces,
                  "Address of a local interface, or all; may be repeated; all if not given")
      ->take_all()
      ->allow_extra_args(false);
  addTraceTo(command);
}

void DiscoveryOptions::addTraceTo(CLI::App& command) {
  command
      .add_option("--trace", trace, "Write the discovery log to standard error: packets, or raw bytes too")
      ->check(CLI::IsMember(TraceMasks()));
}

void DiscoveryOptions::startTrace() const {
  if (trace.empty()) return;
  quorvind::SetLog([](const std::string& line) { std::fputs((OneLine(line) + '\n').c_str(), stderr); },
                   TraceMasks().at(trace));
}

quorvind::IP4Set DiscoveryOptions::addresses() const {
  std::vector<std::string> texts;
  for (const auto& given : ifaces) texts.push_back(InterfaceText(given));
  if (texts.empty()) texts.emplace_back("network:all");
  auto addresses = quorvind::ReadInterfaces(texts);
  if (addresses.empty()) {
    throw CommandFailure(
        "this machine has no interface for discovery: one that is up, is not the loopback, and broadcasts or "
        "multicasts; \"qvio ifaces\" shows them");
  }
  return {addresses.begin(), addresses.end()};
}

}  // namespace qvio_tool
