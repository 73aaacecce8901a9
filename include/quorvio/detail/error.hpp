#ifndef QUORVIO_DETAIL_ERROR_HPP
#define QUORVIO_DETAIL_ERROR_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <system_error>

#include "quorvio/quorvio.h"

namespace quorvio {

/** The results of the C functions with their numbers, and from 100 on those of this header. */
enum class Errc : int {
  noFreeHandle = QV_IO_ERROR_NO_FREE_HANDLE,
  invalidLocator = QV_IO_ERROR_INVALID_LOCATOR,
  deviceNotFound = QV_IO_ERROR_DEVICE_NOT_FOUND,
  invalidArgument = QV_IO_ERROR_INVALID_ARGUMENT,
  driverFailure = QV_IO_ERROR_DRIVER_FAILURE,
  /** Not open: closed (also by another thread during the call), moved from, or the parent's after a fork. */
  invalidHandle = QV_IO_ERROR_INVALID_HANDLE,
  connectionLost = QV_IO_ERROR_CONNECTION_LOST,
  receiveFailed = QV_IO_ERROR_RECEIVE_FAILED,
  transmitFailed = QV_IO_ERROR_TRANSMIT_FAILED,
  notSupported = QV_IO_ERROR_NOT_SUPPORTED,
  propertyUnavailable = QV_IO_ERROR_PROPERTY_UNAVAILABLE,
  /** readUntil: the receive buffer is full and holds no terminator. */
  bufferTooSmall = QV_IO_ERROR_BUFFER_TOO_SMALL,
  queryFailed = QV_IO_ERROR_QUERY_FAILED,
  driverUnavailable = QV_IO_ERROR_DRIVER_UNAVAILABLE,
  wrongEventType = QV_IO_ERROR_WRONG_EVENT_TYPE,
  timedOut = 100,    /**< equals std::errc::timed_out, too */
  eventsLost = 101,  /**< DeviceWatch: the queue was full */
  watchExists = 102, /**< DeviceWatch: there is one in this process */
};

}  // namespace quorvio

/// @cond
template <>
struct std::is_error_code_enum<quorvio::Errc> : std::true_type {};
/// @endcond

namespace quorvio {
namespace detail {

class Category final : public std::error_category {
 public:
  [[nodiscard]] const char* name() const noexcept override { return "quorvio"; }

  /// The one place for the names of results.
  [[nodiscard]] std::string message(int code) const override {
    static constexpr std::array<const char*, 16> kResults{
        "success",          "no free handle",   "invalid locator",
        "device not found", "invalid argument", "driver or system failure",
        "invalid handle",   "connection lost",  "receive failed",
        "transmit failed",  "not supported",    "property unavailable",
        "buffer too small", "query failed",     "driver unavailable",
        "wrong event type"};
    static constexpr std::array<const char*, 3> kOwn{"timed out", "events lost",
                                                     "devices are watched already"};
    constexpr int kFirstOwn = static_cast<int>(Errc::timedOut);
    if (code >= 0 && code < static_cast<int>(kResults.size()))
      return kResults[static_cast<std::size_t>(code)];
    if (code >= kFirstOwn && code < kFirstOwn + static_cast<int>(kOwn.size()))
      return kOwn[static_cast<std::size_t>(code - kFirstOwn)];
    return "unknown result " + std::to_string(code);
  }

  [[nodiscard]] std::error_condition default_error_condition(int code) const noexcept override {
    if (code == static_cast<int>(Errc::timedOut)) return std::errc::timed_out;
    return {code, *this};
  }
};

}  // namespace detail

/** Of the codes that are an Errc. */
inline const std::error_category& category() noexcept {
  // Never destroyed: callbacks may run while the process exits.
  alignas(detail::Category) static unsigned char storage[sizeof(detail::Category)];
  static const auto& forever = *::new (storage) detail::Category;
  return forever;
}

/** For the implicit conversion of an Errc to std::error_code. */
inline std::error_code make_error_code(Errc code) noexcept { return {static_cast<int>(code), category()}; }

/** Every failure that this header throws. */
class Error : public std::system_error {
 public:
  /** @param code  why
   * @param what  for people; what() adds the code's message */
  Error(Errc code, const std::string& what) : std::system_error(make_error_code(code), what) {}
  /** The same for a code of any category. */
  Error(std::error_code code, const std::string& what) : std::system_error(code, what) {}
};

namespace detail {

inline void check(uint32_t result, const std::string& what) {
  if (result != QV_IO_OK) throw Error(static_cast<Errc>(result), what);
}

}  // namespace detail
}  // namespace quorvio

#endif
