#pragma once

#include <cstdint>
#include <string>

#include "options/record_list.h"
#include "quorvio/quorvio.h"

/// A global event. It lives on the raising thread's stack; the application reads its type directly and the
/// rest through the accessors.
struct QV_IO_Event {
  uint32_t type;
  uint32_t errorCode = 0;            ///< QV_IO_EVENT_ERROR
  std::string message = {};          ///< QV_IO_EVENT_ERROR
  qvio::PropertyRecord device = {};  ///< QV_IO_EVENT_DEVICE_FOUND, QV_IO_EVENT_DEVICE_LOST
};
