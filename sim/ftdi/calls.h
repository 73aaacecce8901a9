#pragma once

#include <cstdint>
#include <string_view>

#include "sim/ftdi/call_script.h"
#include "sim/ftdi/driver.h"

namespace qvsim {

namespace status = qvio::d2xx::status;

/// The state of the stand-in, which both libraries share and which is never destroyed.
Driver& TheDriver();
CallScript& TheCallScript();

/// One call of a driver's function: counted, failing when that is scripted, and no exception leaves it.
template <class Action>
uint32_t Call(std::string_view function, Action action) noexcept {
  try {
    const auto scripted = TheCallScript().enter(function);
    return scripted != status::kOk ? scripted : action();
  } catch (...) {  // no chips, no memory or no thread: there is a status for that
    return status::kOtherError;
  }
}

/// The same for a function about an open chip.
/// @param action  gets the chip and its port
template <class Action>
uint32_t CallOn(qvio::d2xx::Handle handle, std::string_view function, Action action) noexcept {
  return Call(function, [&] {
    const auto [chip, port] = TheDriver().find(handle);
    if (!port) return status::kInvalidHandle;
    return port->state() != status::kOk ? port->state() : action(*chip, *port);
  });
}

}  // namespace qvsim
