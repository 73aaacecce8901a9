#pragma once

#include <cerrno>
#include <cstdint>
#include <exception>
#include <string_view>
#include <system_error>

#include "driver/driver.h"
#include "driver/enter.h"

namespace qvusb {

namespace status = qvio::d2xx::status;

/// The status for a failed system call.
inline uint32_t StatusOf(const std::system_error& failure) {
  switch (failure.code().value()) {
    case ENOENT:
    case ENODEV:
      return status::kDeviceNotFound;
    case EACCES:
    case EPERM:
    case EBUSY:
      return status::kDeviceNotOpened;
    default:
      return status::kOtherError;
  }
}

/// One call of an exported function: no exception leaves it but the one that ends a thread.
template <class Action>
uint32_t Call(std::string_view function, Action action) {
  try {
    const auto refused = Enter(function);
    return refused != status::kOk ? refused : action();
  } catch (const std::system_error& failure) {
    return StatusOf(failure);
  } catch (const std::exception&) {
    return status::kOtherError;
  }
}

/// The same for a function about an open channel.
/// @param action  gets its port
template <class Action>
uint32_t CallOn(qvio::d2xx::Handle handle, std::string_view function, Action action) {
  return Call(function, [&] {
    const auto port = Driver::the().find(handle);
    if (!port) return status::kInvalidHandle;
    try {
      return action(*port);
    } catch (const std::system_error& failure) {
      return failure.code().value() == ENODEV ? status::kIoError : status::kOtherError;
    }
  });
}

}  // namespace qvusb
