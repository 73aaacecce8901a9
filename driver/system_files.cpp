#include "driver/system_files.h"

#include <algorithm>
#include <fstream>
#include <system_error>

namespace qvusb {

namespace fs = std::filesystem;

std::string Line(const fs::path& file) {
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  return line;
}

std::vector<std::string> Entries(const fs::path& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator next(folder, error), end; !error && next != end; next.increment(error))
    names.push_back(next->path().filename());
  std::ranges::sort(names);
  return names;
}

std::string LinkedName(const fs::path& link) {
  std::error_code error;
  return fs::read_symlink(link, error).filename();
}

}  // namespace qvusb
