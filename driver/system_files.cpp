#include "driver/system_files.h"

#include <algorithm>
#include <fstream>
#include <system_error>

namespace qvusb {

namespace fs = std::filesystem;

namespace {

bool IsShortage(const std::error_code& error) {
  return error == std::errc::too_many_files_open || error == std::errc::too_many_files_open_in_system ||
         error == std::errc::not_enough_memory;
}

}  // namespace

std::string Line(const fs::path& file) {
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  return line;
}

std::vector<std::string> Entries(const fs::path& folder) {
  std::vector<std::string> names;
  std::error_code error;
  fs::directory_iterator next(folder, error);
  if (IsShortage(error)) throw std::system_error(error);
  for (const fs::directory_iterator end; !error && next != end; next.increment(error))
    names.push_back(next->path().filename());
  std::ranges::sort(names);
  return names;
}

std::string LinkedName(const fs::path& link) {
  std::error_code error;
  return fs::read_symlink(link, error).filename();
}

}  // namespace qvusb
