#include "io/ftdi/usb.h"

#include <new>

#include "util/failure.h"
#include "util/never_destroyed.h"

namespace qvio {

Usb& TheUsb() {
  static constinit cppu::NeverDestroyed<Usb> usb;
  return usb.value;
}

void RenewUsb() {
  const auto driver = TheUsb().driver;
  ::new (&TheUsb()) Usb;
  TheUsb().driver = driver;
}

UsbAccess::UsbAccess() : usb_(TheUsb()), lock_(usb_.mutex) {
  Require(usb_.driver.ensureLoaded(), QV_IO_ERROR_DRIVER_UNAVAILABLE, "FTDI's driver cannot be used: %",
          {usb_.driver.problem().view()});
}

}  // namespace qvio
