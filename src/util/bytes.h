#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace cppu {

using Bytes = std::vector<uint8_t>;

/// Reads wire data in order; integers are little-endian. A read past the end gives zeros or nothing and
/// clears ok(), so one check after the last read is enough.
class ByteReader {
 public:
  explicit ByteReader(std::span<const uint8_t> bytes) : rest_(bytes) {}

  template <std::unsigned_integral T>
  T le() {
    T value = 0;
    unsigned shift = 0;
    for (const auto byte : raw(sizeof(T))) {
      value = static_cast<T>(value | static_cast<T>(static_cast<T>(byte) << shift));
      shift += 8;
    }
    return value;
  }

  /// The next `count` bytes; none when there are fewer.
  std::span<const uint8_t> raw(std::size_t count) {
    if (count > rest_.size()) {
      ok_ = false;
      rest_ = {};
      return {};
    }
    const auto bytes = rest_.first(count);
    rest_ = rest_.subspan(count);
    return bytes;
  }

  /// Fills the array; leaves it as it is when there are fewer bytes.
  template <std::size_t Count>
  void into(std::array<uint8_t, Count>& array) {
    const auto bytes = raw(Count);
    std::copy(bytes.begin(), bytes.end(), array.begin());
  }

  std::string_view text(std::size_t length) {
    const auto bytes = raw(length);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }

  /// What has not been read.
  [[nodiscard]] std::span<const uint8_t> rest() const { return rest_; }
  [[nodiscard]] bool ok() const { return ok_; }

 private:
  std::span<const uint8_t> rest_;
  bool ok_ = true;
};

/// Writes wire data in order; integers are little-endian.
class ByteWriter {
 public:
  explicit ByteWriter(std::size_t expectedSize = 0) { bytes_.reserve(expectedSize); }

  template <std::unsigned_integral T>
  void le(T value) {
    for (unsigned shift = 0; shift < 8 * sizeof(T); shift += 8) {
      bytes_.push_back(static_cast<uint8_t>(value >> shift));
    }
  }

  void raw(std::span<const uint8_t> bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
  void text(std::string_view text) { bytes_.insert(bytes_.end(), text.begin(), text.end()); }

  /// Appends zeros until `size` bytes are written.
  void padTo(std::size_t size) { bytes_.resize(std::max(size, bytes_.size())); }

  [[nodiscard]] std::size_t size() const { return bytes_.size(); }
  [[nodiscard]] Bytes take() { return std::move(bytes_); }

 private:
  Bytes bytes_;
};

}  // namespace cppu
