#pragma once

#include <csignal>
#include <functional>
#include <string_view>

#include "util/unique_fd.h"

namespace qvsim {

/// What the program's first thread does while the devices are served: it waits for the signals that end the
/// program and reads lines from standard input. Made before any thread starts, which inherits its mask.
class MainLoop {
 public:
  MainLoop();

  /// Returns when a signal to end has come.
  /// @param onLine  gets each line of standard input; without it none is read
  void run(const std::function<void(std::string_view)>& onLine = {}) const;

 private:
  cppu::UniqueFd signals_;
};

}  // namespace qvsim
