#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qvio {

/// A locator, split once, when a channel is opened.
struct Locator {
  std::string text;                 ///< as given
  uint32_t interfaceType;           ///< QV_IO_INTERFACE_…, which the word before the first ":" names
  std::vector<std::string> fields;  ///< the pieces between ":" after that word, without empty ones
};

/// Throws Failure with QV_IO_ERROR_INVALID_LOCATOR for a text without ":" or with an unknown word before it.
/// The channel checks the fields.
Locator ReadLocator(std::string_view text);

/// How the locators of network devices are written.
enum class NetworkLocatorFormat { SerialNumber = 0, Host = 1 };

/// "sn" or "host"; throws OptionsError for any other word.
NetworkLocatorFormat ReadNetworkLocatorFormat(std::string_view word);

}  // namespace qvio
