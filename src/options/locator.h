#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace qvio {

/// The interface kind (QV_IO_INTERFACE_…) that the word before the first ":" names; none for a text without
/// ":" or with another word.
std::optional<uint32_t> InterfaceTypeOf(std::string_view locator);

/// The same; throws Failure with QV_IO_ERROR_INVALID_LOCATOR where there is none.
uint32_t RequireInterfaceType(std::string_view locator);

/// The fields of a locator: its non-empty pieces between ":". The interface word is the first.
std::vector<std::string_view> LocatorFields(std::string_view locator);

/// How the locators of network devices are written.
enum class NetworkLocatorFormat { SerialNumber = 0, Host = 1 };

/// "sn" or "host"; throws OptionsError for any other word.
NetworkLocatorFormat ReadNetworkLocatorFormat(std::string_view word);

}  // namespace qvio
