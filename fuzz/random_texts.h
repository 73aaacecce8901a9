#pragma once

#include <string>

#include "decisions.h"

namespace qvfuzz {

/// Locators and option texts out of an input, kept from doing harm: nothing but simulated devices is opened,
/// searches are short and few, and without a private network nothing is sent to any host.
class RandomTexts {
 public:
  explicit RandomTexts(bool networkIsPrivate)
      : searches_(networkIsPrivate ? kSearches : 0), networkIsPrivate_(networkIsPrivate) {}

  std::string locator(Decisions& decisions) const;

  /// For settings.
  std::string options(Decisions& decisions);

  /// For what may search.
  std::string searchOptions(Decisions& decisions);

 private:
  static constexpr int kSearches = 2;  ///< in one input: they take milliseconds

  int searches_;
  bool networkIsPrivate_;
};

}  // namespace qvfuzz
