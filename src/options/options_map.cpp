#include "options/options_map.h"

#include <algorithm>

#include "util/text.h"

namespace cppu {

OptionsMap::OptionsMap(std::string_view text) {
  for (const auto untrimmed : Split(text, '\n')) {
    const auto line = Trim(untrimmed);
    if (line.empty()) continue;
    const auto space = line.find(' ');  // not any blank: a tab belongs to the key
    const auto value = space == std::string_view::npos ? std::string_view{} : line.substr(space + 1);
    items_.push_back({std::string(line.substr(0, space)), std::string(value)});
  }
}

const OptionsMap::Item* OptionsMap::find(std::string_view key) const {
  const auto found = std::ranges::find(items_, key, &Item::key);
  return found == items_.end() ? nullptr : &*found;
}

}  // namespace cppu
