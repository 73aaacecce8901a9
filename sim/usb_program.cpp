#include "sim/usb_program.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "util/argv.h"

namespace qvsim {
namespace {

namespace fs = std::filesystem;

/// Seen from the folder of this program: as installed, and as built.
constexpr std::array kStandInFolders{QVIO_SIM_STAND_IN, "../lib/sim"};

fs::path StandInFolder() {
  const auto programs = fs::read_symlink("/proc/self/exe").parent_path();
  for (const auto* const folder : kStandInFolders)
    if (const auto path = programs / folder; fs::exists(path / "libftd2xx.so")) return fs::canonical(path);
  throw std::runtime_error("the stand-in for FTDI's driver is not installed");
}

}  // namespace

int RunWithUsbChips(const std::vector<std::string>& command, const std::string& chips) {
  const char* const others = std::getenv("LD_LIBRARY_PATH");
  const auto path = StandInFolder().string() + (others != nullptr ? ':' + std::string(others) : "");
  ::setenv("LD_LIBRARY_PATH", path.c_str(), 1);
  if (!chips.empty()) ::setenv("QVIO_SIM_CHIPS", fs::absolute(chips).c_str(), 1);
  const auto words = cppu::Argv(command);
  ::execvp(words.front(), words.data());
  const int error = errno;
  std::fprintf(stderr, "qvio-sim: cannot run %s: %s\n", words.front(), std::strerror(error));
  return error == ENOENT ? 127 : 126;
}

}  // namespace qvsim
