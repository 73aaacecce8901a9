#include "device/search.h"

#include <array>
#include <cstdio>
#include <utility>

#include "device/failure_text.h"
#include "nd/interface_texts.h"
#include "nd/log.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace qvio_tool {
namespace {

using quorvind::LogCategory;
using quorvind::LogMask;
using std::chrono::milliseconds;

constexpr std::string_view kNetworkWord = "network:";

const std::map<std::string, LogMask>& TraceMasks() {
  static const std::map<std::string, LogMask> masks{
      {"packets", {LogCategory::Warnings, LogCategory::Packets}},
      {"raw", {LogCategory::Warnings, LogCategory::Packets, LogCategory::RawDatagrams}}};
  return masks;
}

std::string WithoutWord(const std::string& text) {
  return text.substr(text.starts_with(kNetworkWord) ? kNetworkWord.size() : 0);
}

std::vector<std::string> InterfaceTexts(const quorvind::IP4Set& addresses) {
  std::vector<std::string> texts;
  for (const auto& address : addresses)
    texts.push_back(std::string(kNetworkWord) + quorvind::IP4ToString(address));
  return texts;
}

quorvio::DeviceWatch Watch(const quorvind::IP4Set& addresses) try {
  return quorvio::DeviceWatch(InterfaceTexts(addresses));
} catch (const quorvio::Error&) {
  throw CommandFailure(WithHint(FailureText(), kWhichAddresses));
}

}  // namespace

std::string InterfaceText(const std::string& given) {
  const auto address = WithoutWord(given);
  const auto ip4 = quorvind::IP4FromString(address);
  if (address != "all" && (!ip4 || *ip4 == quorvind::IP4{})) {
    throw CommandFailure(WithHint(OneLine(given) + " is not the address of an interface", kWhichAddresses),
                         WrongUsage);
  }
  return std::string(kNetworkWord) + address;
}

void DiscoveryOptions::addTo(CLI::App& command) {
  command.add_option("--iface", ifaces, "Address of a local interface, or all; may be repeated; default all")
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
  const auto addresses = quorvind::ReadInterfaces(texts);
  if (addresses.empty()) throw CommandFailure(kNoInterface);
  return {addresses.begin(), addresses.end()};
}

std::string IfaceAddress(const quorvio::Device& device) { return WithoutWord(device.interface); }

DeviceSearch::DeviceSearch(const quorvind::IP4Set& addresses) : watch_(Watch(addresses)) {
  options_.add("find-only-available", false);
  for (const auto& text : InterfaceTexts(addresses)) options_.add("iface", text);
}

std::vector<quorvio::Device> DeviceSearch::ask(milliseconds time) const try {
  auto options = options_;
  options.add("discovery-timeout", time.count());
  return quorvio::listDevices(quorvio::InterfaceKind::network, options);
} catch (const quorvio::Error&) {
  throw CommandFailure(FailureText());
}

void RepeatedSearch::run(const DeviceSearch& search, std::chrono::seconds pause) const {
  constexpr milliseconds kSearchTime{500};
  do {
    try {
      static_cast<void>(search.ask(kSearchTime));  // the results come as events
    } catch (const std::exception& failure) {
      std::fprintf(stderr, "qvio: %s\n", failure.what());
    }
    stop_.wait(pause);
  } while (pause.count() > 0 && !stop_.requested());
}

}  // namespace qvio_tool
