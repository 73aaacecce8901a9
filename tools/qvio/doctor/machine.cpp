#include "doctor/machine.h"

#include <algorithm>
#include <fstream>

#include "util/text.h"

namespace qvio_tool {

namespace fs = std::filesystem;

bool Machine::has(std::string_view path) const {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(at(path), ignored));
}

std::string Machine::line(std::string_view path) const {
  std::ifstream file(at(path));
  std::string text;
  std::getline(file, text);
  return std::string(cppu::Trim(text));
}

std::vector<std::string> Machine::entries(std::string_view folder) const {
  std::vector<std::string> names;
  std::error_code ignored;
  for (fs::directory_iterator entry(at(folder), ignored), end; entry != end; entry.increment(ignored))
    names.push_back(entry->path().filename());
  std::ranges::sort(names);
  return names;
}

}  // namespace qvio_tool
