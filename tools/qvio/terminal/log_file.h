#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "util/unique_fd.h"

namespace qvio_tool {

/// When a log file is put aside and begun anew, and how many old ones are kept. 0: never, and all.
struct Rotation {
  uint64_t bytes = 0;              ///< the most in one file
  std::chrono::seconds period{0};  ///< of local time: a day begins at midnight
  std::size_t kept = 0;
};

/// A file to which is appended. Nothing is kept back: what append() has taken survives the end of the
/// program. "stage.log" is put aside as "stage-20260504T110201.123Z.log", the time at which it ended.
class LogFile {
 public:
  /// Throws CommandFailure for a file that cannot be written, or is none.
  explicit LogFile(std::string path, Rotation rotation = {});

  /// Throws CommandFailure, for instance when the disk is full.
  void append(std::string_view bytes);

 private:
  using Time = std::chrono::system_clock::time_point;

  void open();
  void rotate(Time now);
  [[nodiscard]] bool isFull(std::size_t more, Time now) const;
  [[nodiscard]] int64_t periodOf(Time time) const;

  const std::string path_;
  const Rotation rotation_;
  cppu::UniqueFd fd_;
  uint64_t size_ = 0;
  int64_t period_ = 0;  ///< in which the last bytes were written
};

}  // namespace qvio_tool
