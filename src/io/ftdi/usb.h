#pragma once

#include <mutex>

#include "io/ftdi/device_list.h"
#include "io/ftdi/driver.h"
#include "util/signals_blocked.h"

namespace qvio {

/// The state that all USB work of the process shares. Never destroyed.
struct Usb {
  std::mutex mutex;  ///< held while chips are listed or opened; guards the list and load attempts
  FtdiDriver driver;
  UsbDeviceList devices;
};

Usb& TheUsb();

/// For a forked child: a new lock and an empty list. The driver's libraries stay loaded.
void RenewUsb();

/// Holds the USB mutex, with the driver loaded. Blocks all signals for its lifetime: the driver may start
/// threads when it is loaded, lists or opens chips, and the application's handlers must not run on them.
/// Throws Failure with QV_IO_ERROR_DRIVER_UNAVAILABLE.
class UsbAccess {
 public:
  UsbAccess();

  [[nodiscard]] const D2xxFunctions& functions() const { return usb_.driver.functions(); }
  [[nodiscard]] UsbDeviceList& devices() { return usb_.devices; }

 private:
  Usb& usb_;
  std::lock_guard<std::mutex> lock_;
  cppu::AllSignalsBlocked inherited_;  ///< by threads of the driver
};

}  // namespace qvio
