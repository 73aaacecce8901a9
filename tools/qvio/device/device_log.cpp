#include "device/device_log.h"

#include <utility>

#include "terminal/text.h"
#include "terminal/time_text.h"

namespace qvio_tool {

DeviceLog::DeviceLog(Sink sink, Form form, const std::string& name)
    : sink_(std::move(sink)),
      form_(form),
      name_(name.empty() ? name : OneLine(name) + ' '),
      received_(form, [this] { return begin('<'); }) {}

void DeviceLog::addSent(std::string_view bytes) {
  ReceivedText sent(form_, [this] { return begin('>'); });
  sink_(sent.add(bytes, Clock::now()));
  sink_(sent.takeRest());
}

void DeviceLog::addNotice(std::string_view text) {
  addRest();
  sink_(begin('!') + OneLine(text) + '\n');
}

std::string DeviceLog::begin(char direction) const {
  return LocalTime(std::chrono::system_clock::now()) + ' ' + name_ + direction + ' ';
}

}  // namespace qvio_tool
