#pragma once

#include <dlfcn.h>

#include <stdexcept>

#include "sim/ftdi/control.h"

namespace qvsim {

/// The control functions of the stand-in driver that this process uses. Any thread.
class StandIn {
 public:
  StandIn() : driver_(::dlopen("libftd2xx.so", RTLD_NOW)) {
    if (driver_ == nullptr || find<decltype(QVSIM_Reset)>("QVSIM_Reset") == nullptr)
      throw std::runtime_error("run with LD_LIBRARY_PATH=build/lib/sim");
  }

  template <class Function>
  [[nodiscard]] Function* find(const char* name) const {
    return reinterpret_cast<Function*>(::dlsym(driver_, name));
  }

 private:
  void* driver_;  ///< stays loaded, as the stand-in does by itself
};

}  // namespace qvsim
