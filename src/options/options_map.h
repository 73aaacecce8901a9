#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cppu {

/// A parsed option text: its lines "KEY VALUE" in their order. A key may occur more than once.
class OptionsMap {
 public:
  struct Item {
    std::string key;
    std::string value;  ///< empty when the line holds only a key

    friend bool operator==(const Item&, const Item&) = default;
  };

  OptionsMap() = default;

  /// Never fails: lines are trimmed of blanks and carriage returns, empty ones skipped, and split at their
  /// first space; further spaces belong to the value.
  explicit OptionsMap(std::string_view text);

  /// The first item with the key, or null.
  [[nodiscard]] const Item* find(std::string_view key) const;

  [[nodiscard]] const std::vector<Item>& items() const { return items_; }

 private:
  std::vector<Item> items_;
};

}  // namespace cppu
