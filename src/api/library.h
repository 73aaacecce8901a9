#pragma once

#include <mutex>

#include "api/event_dispatcher.h"
#include "api/handle_table.h"
#include "io/serial_ports.h"

namespace qvio {

/// The process-wide objects. Built at load and never destroyed; at unload the handle table is emptied and the
/// receive threads that were told to end are waited for.
struct Library {
  std::mutex globalMutex;  ///< guards the handle table, the event callback and the global options
  HandleTable handles{globalMutex};
  EventDispatcher events{globalMutex};
  SerialPorts serialPorts;
};

Library& TheLibrary();

}  // namespace qvio
