#include "faults/uses.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <span>

#include "quorvio/quorvio.h"
#include "support/wait.h"

namespace qvtest {
namespace {

constexpr uint32_t kFailed = QV_IO_ERROR_DRIVER_FAILURE;
constexpr uint32_t kMissing = kFailed;  ///< what did not come, though no call failed
constexpr std::size_t kTextSize = 4096;

/// What a callback is waited for.
class Awaited {
 public:
  void come(uint32_t what) {
    const std::lock_guard lock(mutex_);
    what_ = what;
    changed_.notify_all();
  }
  [[nodiscard]] uint32_t await(uint32_t wanted, Patience patience) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, patience, [&] { return what_ == wanted; });
    return what_;
  }

 private:
  std::mutex mutex_;  ///< guards what follows
  std::condition_variable changed_;
  uint32_t what_ = kMissing;
};

void UseChannel(const std::string& locator, const std::string& options, Patience patience, Answers& answers) {
  Awaited answer;
  const auto onReceive = [](void* user, const uint8_t*, std::size_t length) {
    if (length != 0 && length != static_cast<std::size_t>(-1)) static_cast<Awaited*>(user)->come(QV_IO_OK);
  };
  const auto onError = [](void* user, uint32_t code) { static_cast<Awaited*>(user)->come(code); };
  uint32_t handle = 0;
  const auto opened = QV_IO_Open(&handle, locator.c_str(), options.c_str(), &answer, onReceive, onError);
  if (!answers.add("open", opened, {QV_IO_ERROR_DEVICE_NOT_FOUND, kFailed})) return;
  const auto sent = QV_IO_Send(handle, "*IDN?\n", 6);
  if (answers.add("send", sent, {QV_IO_ERROR_CONNECTION_LOST, QV_IO_ERROR_TRANSMIT_FAILED}))
    answers.add("answer", answer.await(QV_IO_OK, patience),
                {kMissing, QV_IO_ERROR_CONNECTION_LOST, QV_IO_ERROR_RECEIVE_FAILED});
  std::array<char, kTextSize> text{};
  auto size = text.size();
  answers.add("property", QV_IO_GetProperty(handle, "ftdi-id", text.data(), &size),
              {QV_IO_ERROR_PROPERTY_UNAVAILABLE, kFailed});
  answers.add("close", QV_IO_Close(handle, 1));
}

/// Lists network devices; whether the one with the serial number is among them, or the listing's result.
uint32_t Find(const std::string& serialNumber) {
  std::array<char, kTextSize> text{};
  auto size = text.size();
  const auto result = QV_IO_EnumerateDevices(QV_IO_INTERFACE_ALL,
                                             "iface-type network\niface network:127.0.0.1\n"
                                             "discovery-timeout 5\ninclude-all",
                                             text.data(), &size);
  if (result != QV_IO_OK) return result;
  return std::strstr(text.data(), serialNumber.c_str()) != nullptr ? uint32_t{QV_IO_OK} : kMissing;
}

void List(const std::string& serialNumber, Answers& answers) {
  answers.add("network", Find(serialNumber), {QV_IO_ERROR_INVALID_ARGUMENT, kMissing});
  std::array<char, kTextSize> text{};
  for (const auto* const options : {"iface-type usb\ninclude-all", "iface-type usb\nonly-locator"}) {
    auto size = text.size();
    answers.add("usb", QV_IO_EnumerateDevices(QV_IO_INTERFACE_ALL, options, text.data(), &size),
                {kFailed, QV_IO_ERROR_QUERY_FAILED});
  }
  auto size = text.size();
  answers.add("chips",
              QV_IO_EnumerateDevices(QV_IO_INTERFACE_USB, "include-id\nforce-rescan", text.data(), &size),
              {kFailed, QV_IO_ERROR_QUERY_FAILED});
  size = text.size();
  answers.add("interfaces", QV_IO_EnumerateInterfaces("iface-type network\ninclude-all", text.data(), &size),
              {kFailed});
  size = text.size();
  answers.add(
      "ports",
      QV_IO_EnumerateDevices(QV_IO_INTERFACE_ALL, "iface-type serial\nonly-locator", text.data(), &size),
      {QV_IO_ERROR_NOT_SUPPORTED, kFailed});
}

void Watch(const std::string& serialNumber, Patience patience, Answers& answers) {
  struct Event {
    Awaited came;
    std::atomic<uint32_t> data = QV_IO_OK;
  } event;
  const auto onEvent = [](void* user, uint32_t /*type*/, const QV_IO_Event* record) {
    std::array<char, kTextSize> text{};
    auto size = text.size();
    const auto read = QV_IO_GetDiscoveryEventData(record, "include-all", text.data(), &size);
    if (read != QV_IO_OK) static_cast<Event*>(user)->data = read;
    static_cast<Event*>(user)->came.come(QV_IO_OK);
  };
  answers.add("callback", QV_IO_SetEventCallback(onEvent, &event));
  const auto watched = QV_IO_SetGlobalOptions("locator-format-network sn\ndiscovery-iface network:127.0.0.1");
  if (answers.add("watch", watched, {QV_IO_ERROR_INVALID_ARGUMENT, kFailed})) {
    // Whatever an event was lost by, the next search brings it.
    auto heard = kMissing;
    bool isKnown = false;
    for (int search = 0; search < 3 && heard != QV_IO_OK; ++search) {
      isKnown = answers.add("search", Find(serialNumber), {QV_IO_ERROR_INVALID_ARGUMENT, kMissing});
      heard = event.came.await(QV_IO_OK, patience);
    }
    answers.add("event", heard, {kMissing});
    answers.add("data", event.data, {kFailed});
    // Without a search of its own. One that got its answer too late has taken the device out again.
    if (isKnown) UseChannel("network:sn:" + serialNumber, "", patience, answers);
  }
  if (!answers.add("unwatch", QV_IO_SetGlobalOptions(nullptr), {kFailed}))
    answers.add("unwatch", QV_IO_SetGlobalOptions(nullptr));
  answers.add("callback", QV_IO_SetEventCallback(nullptr, nullptr));
}

}  // namespace

bool Answers::add(const char* call, uint32_t result, std::initializer_list<uint32_t> stated) {
  const bool isStated = result == QV_IO_OK || std::ranges::find(stated, result) != stated.end();
  answers_.at(count_++) = {call, result, isStated};
  return result == QV_IO_OK;
}

std::string Answers::text() const {
  std::string text;
  for (const auto& [call, result, isStated] : std::span(answers_).first(count_))
    text +=
        (text.empty() ? "" : ", ") + std::string(call) + ' ' + std::to_string(result) + (isStated ? "" : "!");
  return text;
}

bool Answers::areStated() const {
  return std::ranges::all_of(std::span(answers_).first(count_), &Answer::isStated);
}

bool Answers::reportFailure() const {
  return std::ranges::count(std::span(answers_).first(count_), kFailed, &Answer::result) != 0;
}

bool Answers::areThoseOf(const Answers& good) const {
  return std::ranges::all_of(std::span(answers_).first(count_), [&](const Answer& answer) {
    return answer.result == kFailed ||
           std::ranges::any_of(std::span(good.answers_).first(good.count_), [&](const Answer& other) {
             return other.result == answer.result && std::strcmp(other.call, answer.call) == 0;
           });
  });
}

Answers Use::undisturbed() const {
  Answers answers;
  static_cast<void>(Eventually([&] {
    answers = once(std::chrono::seconds(1));
    return !answers.reportFailure();
  }));
  return answers;
}

std::vector<Use> Devices::makeUses() const {
  const auto tcp = "network:" + tcp_.line();
  const auto serial = "serial:" + serial_.line();
  static_cast<void>(controller_.line());
  const auto channel = [](const char* name, const std::string& locator, const std::string& options) {
    return Use{name,
               [=](Patience patience, Answers& answers) { UseChannel(locator, options, patience, answers); }};
  };
  const auto number = serialNumber_;
  return {channel("serial", serial, "baudrate 115200"),
          channel("tcp", tcp, ""),
          channel("usb", "usb:sn:FAULTS", "baudrate 115200"),
          channel("unknown", "network:sn:NOBODY", "iface network:127.0.0.1\ndiscovery-timeout 5"),
          {"lists", [=](Patience /*patience*/, Answers& answers) { List(number, answers); }},
          {"watching", [=](Patience patience, Answers& answers) { Watch(number, patience, answers); }}};
}

}  // namespace qvtest
