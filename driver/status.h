#pragma once

#include <cstdint>

/// The results of the driver's functions.
namespace qvusb::status {

inline constexpr uint32_t kOk = 0;
inline constexpr uint32_t kInvalidHandle = 1;
inline constexpr uint32_t kDeviceNotFound = 2;
inline constexpr uint32_t kDeviceNotOpened = 3;  ///< it is open already, or the user may not use it
inline constexpr uint32_t kIoError = 4;
inline constexpr uint32_t kInvalidParameter = 6;
inline constexpr uint32_t kInvalidBaudRate = 7;
inline constexpr uint32_t kNotSupported = 17;
inline constexpr uint32_t kOtherError = 18;

}  // namespace qvusb::status
