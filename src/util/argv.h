#pragma once

#include <string>
#include <vector>

namespace cppu {

/// The words of a command as the system's exec functions want them. They point into `words`, which the system
/// does not change.
inline std::vector<char*> Argv(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (const auto& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace cppu
