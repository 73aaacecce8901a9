#include "channel.h"

#include <sys/eventfd.h>

#include <utility>

#include "quorvio/quorvio.h"
#include "result_text.h"

namespace qvio_tool {

template <class Action>
void Channel::arrive(Action action) {
  const std::lock_guard lock(mutex_);
  action(arrivals_);
  ::eventfd_write(ready_.get(), 1);
}

Channel::Channel(const std::string& locator, const std::string& options)
    : lock_(locator), ready_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  const auto onReceive = [](void* self, const uint8_t* data, size_t length) {
    static_cast<Channel*>(self)->arrive(
        [&](Arrivals& arrivals) { arrivals.bytes.append(reinterpret_cast<const char*>(data), length); });
  };
  const auto onError = [](void* self, uint32_t code) {
    static_cast<Channel*>(self)->arrive([&](Arrivals& arrivals) { arrivals.notices.push_back(code); });
  };
  const auto result = QV_IO_Open(&handle_, locator.c_str(), options.c_str(), this, onReceive, onError);
  if (result != QV_IO_OK) throw CommandFailure(OpenFailureText(result, locator, options));
  open_ = true;
  lock_.tellSurprises(options);
}

void Channel::close() {
  if (std::exchange(open_, false)) QV_IO_Close(handle_, 1);
}

void Channel::addFailure(std::string text) {
  arrive([&](Arrivals& arrivals) { arrivals.failures.push_back(std::move(text)); });
}

void Channel::send(std::string_view bytes) const {
  const auto result = QV_IO_Send(handle_, bytes.data(), bytes.size());
  if (result != QV_IO_OK) throw CommandFailure(FailureText());
}

Channel::Arrivals Channel::take() {
  const std::lock_guard lock(mutex_);
  eventfd_t ignored = 0;
  ::eventfd_read(ready_.get(), &ignored);
  return std::exchange(arrivals_, {});
}

}  // namespace qvio_tool
