#pragma once

#include <filesystem>
#include <set>
#include <string>

namespace qvusb {

/// Which serial ports of the kernel's FTDI driver some process has open.
class TtyUsers {
 public:
  /// @param root  of all paths; another one than "/" in tests
  explicit TtyUsers(const std::filesystem::path& root);

  /// True also when it is not known which port somebody has open whose files may not be looked at.
  [[nodiscard]] bool use(const std::string& tty) const { return open_.contains(tty); }

 private:
  std::set<std::string> open_;
};

}  // namespace qvusb
