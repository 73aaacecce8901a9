#include "plain_calls.h"

#include <algorithm>
#include <array>
#include <string>

#include "api/event_record.h"
#include "check.h"
#include "options/record_list.h"
#include "quorvio/quorvio.h"
#include "text_buffer.h"

namespace qvfuzz {
namespace {

char userDataOfEvents;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables): only its address counts

/// Reads the events that discovery raises.
void OnEvent(void* userData, uint32_t type, const QV_IO_Event* event) {
  Check(userData == &userDataOfEvents, "user data comes back");
  Check(type == QV_IO_EVENT_DEVICE_FOUND || type == QV_IO_EVENT_DEVICE_LOST, "devices are found and lost");
  std::array<char, 512> buffer{};
  std::size_t size = buffer.size();
  Check(QV_IO_GetDiscoveryEventData(event, "include-all", buffer.data(), &size) == QV_IO_OK && size > 0,
        "an event has a device");
  uint32_t code = 0;
  Check(QV_IO_GetErrorEventData(event, &code, buffer.data(), &size) == QV_IO_ERROR_WRONG_EVENT_TYPE,
        "a discovery event is not an error");
}

void GetVersion(Decisions& decisions) {
  std::array<uint32_t, 3> numbers{};
  const auto choice = decisions.below(8);
  const auto at = [&](unsigned i) { return (choice >> i & 1U) == 0 ? &numbers.at(i) : nullptr; };
  const auto result = QV_IO_GetVersion(at(0), at(1), at(2));
  if (choice == 0) return Check(result == QV_IO_OK && numbers[0] == 2, "the version is reported");
  Check(result == QV_IO_ERROR_INVALID_ARGUMENT && numbers == std::array<uint32_t, 3>{},
        "the version is reported whole");
}

void GetLocatorInterfaceType(Decisions& decisions, const RandomTexts& texts) {
  const auto locator = texts.locator(decisions);
  const auto choice = decisions.byte();
  uint32_t type = 99;
  const auto result = QV_IO_GetLocatorInterfaceType(choice % 8 != 1 ? &type : nullptr,
                                                    choice >= 16 ? locator.c_str() : nullptr);
  if (choice % 8 == 1) return Check(result == QV_IO_ERROR_INVALID_ARGUMENT, "a kind has to go somewhere");
  CheckResult(result, {QV_IO_OK, QV_IO_ERROR_INVALID_LOCATOR});
  Check((type >= QV_IO_INTERFACE_USB && type <= QV_IO_INTERFACE_SERIAL) == (result == QV_IO_OK) && type < 99,
        "a locator names a kind or none");
}

constexpr std::array<uint32_t, 5> kInterfaceTypes{QV_IO_INTERFACE_ALL, QV_IO_INTERFACE_USB,
                                                  QV_IO_INTERFACE_NETWORK, QV_IO_INTERFACE_SERIAL, 0};

void CanEnumerateDevices(Decisions& decisions) {
  const auto type = decisions.oneOf(kInterfaceTypes);
  uint32_t can = 99;
  Check(QV_IO_CanEnumerateDevices(type, nullptr) == QV_IO_ERROR_INVALID_ARGUMENT,
        "an answer has to go somewhere");
  Check(QV_IO_CanEnumerateDevices(type, &can) == QV_IO_OK && can == (type == QV_IO_INTERFACE_USB ? 1U : 0U),
        "chips alone can be listed");
}

/// The result of a listing is stated, and records can be read.
void CheckListing(const HandedOut& call, const std::string& options) {
  CheckResult(call.result,
              {QV_IO_OK, QV_IO_ERROR_INVALID_ARGUMENT, QV_IO_ERROR_NOT_SUPPORTED,
               QV_IO_ERROR_BUFFER_TOO_SMALL, QV_IO_ERROR_QUERY_FAILED, QV_IO_ERROR_DRIVER_UNAVAILABLE});
  if (call.badPointers) Check(call.result == QV_IO_ERROR_INVALID_ARGUMENT, "a list has to go somewhere");
  if (options.find("only-") == std::string::npos) qvio::ReadRecordList(call.text);
}

void EnumerateDevices(Decisions& decisions, RandomTexts& texts) {
  const auto type = decisions.oneOf(kInterfaceTypes);
  const auto options = texts.searchOptions(decisions);
  const auto call = CallForText(decisions, SizeRule::Listing, [&](char* buffer, std::size_t* size) {
    return QV_IO_EnumerateDevices(type, options.empty() ? nullptr : options.c_str(), buffer, size);
  });
  CheckListing(call, type == QV_IO_INTERFACE_ALL ? options : "only-");
}

void EnumerateInterfaces(Decisions& decisions, RandomTexts& texts) {
  const auto options = texts.options(decisions);
  const auto call = CallForText(decisions, SizeRule::Listing, [&](char* buffer, std::size_t* size) {
    return QV_IO_EnumerateInterfaces(options.empty() ? nullptr : options.c_str(), buffer, size);
  });
  CheckListing(call, options);
}

void SetGlobalOptions(Decisions& decisions, RandomTexts& texts) {
  const auto options = texts.options(decisions);
  CheckResult(QV_IO_SetGlobalOptions(options.c_str()), {QV_IO_OK, QV_IO_ERROR_INVALID_ARGUMENT});
}

void SetEventCallback(Decisions& decisions) {
  Check(QV_IO_SetEventCallback(decisions.flag() ? &OnEvent : nullptr, &userDataOfEvents) == QV_IO_OK,
        "events can be had");
}

QV_IO_Event MakeEvent(Decisions& decisions) {
  const auto type = static_cast<uint32_t>(decisions.below(4));
  std::string message(decisions.text());
  const std::string info(decisions.text());
  return {
      type, decisions.byte(), std::move(message), {{"locator", "network:sn:5000"}, {"device-info", info}}};
}

void GetErrorEventData(Decisions& decisions) {
  const auto event = MakeEvent(decisions);
  const bool hasEvent = decisions.byte() % 8 != 1;
  const bool hasCode = decisions.byte() % 8 != 1;
  uint32_t code = 999;
  const auto call = CallForText(decisions, SizeRule::Listing, [&](char* buffer, std::size_t* size) {
    return QV_IO_GetErrorEventData(hasEvent ? &event : nullptr, hasCode ? &code : nullptr, buffer, size);
  });
  Check(code == (call.result == QV_IO_OK ? event.errorCode : 999), "the code is written on success only");
  if (!hasEvent || event.type != QV_IO_EVENT_ERROR)
    return Check(call.result == QV_IO_ERROR_WRONG_EVENT_TYPE, "only an error event has an error");
  if (!hasCode || call.badPointers)
    return Check(call.result == QV_IO_ERROR_INVALID_ARGUMENT, "an error has to go somewhere");
  CheckResult(call.result, {QV_IO_OK, QV_IO_ERROR_BUFFER_TOO_SMALL});
  if (call.result == QV_IO_OK) Check(call.text == event.message, "an error comes with its message");
}

void GetDiscoveryEventData(Decisions& decisions, RandomTexts& texts) {
  const auto event = MakeEvent(decisions);
  const auto options = texts.options(decisions);
  const auto call = CallForText(decisions, SizeRule::Listing, [&](char* buffer, std::size_t* size) {
    return QV_IO_GetDiscoveryEventData(&event, options.c_str(), buffer, size);
  });
  if (event.type != QV_IO_EVENT_DEVICE_FOUND && event.type != QV_IO_EVENT_DEVICE_LOST)
    return Check(call.result == QV_IO_ERROR_WRONG_EVENT_TYPE, "only a discovery event has a device");
  if (call.badPointers)
    return Check(call.result == QV_IO_ERROR_INVALID_ARGUMENT, "a device has to go somewhere");
  CheckResult(call.result, {QV_IO_OK, QV_IO_ERROR_BUFFER_TOO_SMALL, QV_IO_ERROR_INVALID_ARGUMENT});
  if (options.find("only-") != std::string::npos) return;
  for (const auto& record : qvio::ReadRecordList(call.text))
    for (const auto& [key, value] : record) Check(event.device.at(key) == value, "a device comes back");
}

}  // namespace

void CheckResult(uint32_t result, std::initializer_list<uint32_t> stated) {
  if (std::ranges::find(stated, result) != stated.end()) return;
  std::fprintf(stderr, "fuzz: result %u\n", result);
  Check(false, "the result is one that the header states");
}

void MakePlainCall(Decisions& decisions, RandomTexts& texts) {
  switch (decisions.below(10)) {
    case 0:
      return GetVersion(decisions);
    case 1:
      return GetLocatorInterfaceType(decisions, texts);
    case 2:
      return CanEnumerateDevices(decisions);
    case 3:
    case 4:
      return EnumerateDevices(decisions, texts);
    case 5:
      return EnumerateInterfaces(decisions, texts);
    case 6:
      return SetGlobalOptions(decisions, texts);
    case 7:
      return SetEventCallback(decisions);
    case 8:
      return GetErrorEventData(decisions);
    default:
      return GetDiscoveryEventData(decisions, texts);
  }
}

void EndPlainCalls() {
  Check(QV_IO_SetEventCallback(nullptr, nullptr) == QV_IO_OK, "events can be switched off");
  Check(QV_IO_SetGlobalOptions("locator-format-network sn") == QV_IO_OK, "watching can be switched off");
}

}  // namespace qvfuzz
