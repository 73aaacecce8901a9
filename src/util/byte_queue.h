#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace cppu {

/// Bytes that come out in the order in which they went in. Moves the rest only from time to time.
class ByteQueue {
 public:
  [[nodiscard]] std::size_t size() const { return bytes_.size() - taken_; }

  /// No append allocates as long as the queue holds at most so many bytes afterwards.
  void reserve(std::size_t bytes) { bytes_.reserve(2 * bytes); }  // as many again may have been taken

  void append(std::string_view bytes) {
    if (taken_ == bytes_.size()) clear();
    if (taken_ > bytes_.size() / 2) {
      bytes_.erase(0, taken_);
      taken_ = 0;
    }
    bytes_ += bytes;
  }

  /// Returns how many bytes were there to take.
  std::size_t take(char* to, std::size_t atMost) {
    const auto count = bytes_.copy(to, std::min(atMost, size()), taken_);
    taken_ += count;
    return count;
  }

  void clear() {
    bytes_.clear();
    taken_ = 0;
  }

 private:
  std::string bytes_;
  std::size_t taken_ = 0;
};

}  // namespace cppu
