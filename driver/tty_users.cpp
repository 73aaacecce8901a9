#include "driver/tty_users.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <vector>

#include "driver/system_files.h"

namespace qvusb {
namespace {

namespace fs = std::filesystem;

bool IsNumber(const std::string& name) {
  return std::ranges::all_of(name, [](char c) { return c >= '0' && c <= '9'; });
}

/// Only reads links: the files themselves, which may be on a network, are left alone.
std::set<std::string> SeenOpen(const fs::path& root, const std::vector<std::string>& ttys) {
  std::set<std::string> open;
  for (const auto& process : Entries(root / "proc")) {
    if (!IsNumber(process)) continue;
    const auto folder = root / "proc" / process / "fd";
    for (const auto& descriptor : Entries(folder))
      if (const auto name = LinkedName(folder / descriptor); std::ranges::count(ttys, name) != 0)
        open.insert(name);
  }
  return open;
}

}  // namespace

TtyUsers::TtyUsers(const fs::path& root) {
  // A driver that is built into the kernel has no such count.
  const auto users = Line(root / "sys/module/ftdi_sio/refcnt");
  if (users == "0") return;
  auto ttys = Entries(root / "sys/bus/usb-serial/drivers/ftdi_sio");
  std::erase_if(ttys, [](const auto& name) { return !name.starts_with("tty"); });
  open_ = SeenOpen(root, ttys);
  if (std::strtoul(users.c_str(), nullptr, 10) <= open_.size()) return;
  // Somebody else uses a port, and it may be any of them.
  open_.insert(ttys.begin(), ttys.end());
}

}  // namespace qvusb
