#pragma once

#include <mutex>

#include "api/event_dispatcher.h"
#include "api/handle_table.h"
#include "io/serial_ports.h"

namespace qvio {

/// The process-wide objects. Built at load and never destroyed; built anew in a forked child. At unload all
/// threads are ended, and then the handle table is emptied.
struct Library {
  std::mutex globalMutex;  ///< guards the handle table, the event callback and the global options
  HandleTable handles{globalMutex};
  EventDispatcher events{globalMutex};
  SerialPorts serialPorts;
};

Library& TheLibrary();

}  // namespace qvio
