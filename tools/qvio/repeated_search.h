#pragma once

#include <chrono>
#include <cstdio>
#include <exception>
#include <thread>

#include "device_search.h"
#include "util/stop_signal.h"

namespace qvio_tool {

/// Searches at once and then again and again, on a thread of its own: a device that just vanishes says
/// nothing, and only a search notices. Its end waits for the search that is going on.
class RepeatedSearch {
 public:
  /// @param pause  between two searches; 0: only the first one
  RepeatedSearch(const DeviceSearch& search, std::chrono::seconds pause)
      : thread_([this, &search, pause] { run(search, pause); }) {}
  RepeatedSearch(const RepeatedSearch&) = delete;
  RepeatedSearch& operator=(const RepeatedSearch&) = delete;
  ~RepeatedSearch() {
    stop_.request();
    thread_.join();
  }

 private:
  static constexpr std::chrono::milliseconds kSearchTime{500};

  void run(const DeviceSearch& search, std::chrono::seconds pause) {
    do {
      try {
        static_cast<void>(search.ask(kSearchTime));  // the events tell
      } catch (const std::exception& failure) {
        std::fprintf(stderr, "qvio: %s\n", failure.what());
      }
      stop_.wait(pause);
    } while (pause.count() > 0 && !stop_.requested());
  }

  cppu::StopSignal stop_;
  std::thread thread_;
};

}  // namespace qvio_tool
