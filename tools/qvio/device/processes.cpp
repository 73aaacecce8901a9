#include "device/processes.h"

#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace qvio_tool {
namespace {

namespace fs = std::filesystem;

/// The device and inode of a file as /proc/locks writes them.
std::string LockName(const struct stat& file) {
  std::array<char, 64> name{};
  std::snprintf(name.data(), name.size(), "%02x:%02x:%lu", major(file.st_dev), minor(file.st_dev),
                static_cast<unsigned long>(file.st_ino));
  return name.data();
}

Process ProcessOf(const std::string& id, const fs::path& proc) {
  Process process{id, "a process"};
  std::ifstream comm(proc / id / "comm");
  std::getline(comm, process.name);
  return process;
}

bool HasOpen(const fs::path& process, const std::string& target) {
  std::error_code ignored;  // the process has ended, or belongs to another user
  for (fs::directory_iterator file(process / "fd", ignored), end; file != end; file.increment(ignored))
    if (fs::read_symlink(file->path(), ignored) == target) return true;
  return false;
}

template <class Matches>
std::optional<Process> FindProcess(const fs::path& proc, Matches matches) {
  std::error_code ignored;
  for (fs::directory_iterator entry(proc, ignored), end; entry != end; entry.increment(ignored)) {
    const auto id = entry->path().filename().string();
    const bool isProcess = std::ranges::all_of(id, [](char c) { return c >= '0' && c <= '9'; });
    if (isProcess && id != std::to_string(::getpid()) && matches(entry->path())) return ProcessOf(id, proc);
  }
  return {};
}

}  // namespace

/// Lines look like "1: FLOCK  ADVISORY  WRITE 4711 00:17:5 0 EOF".
std::optional<Process> LockHolder(const struct stat& file, const fs::path& proc) {
  const auto wanted = LockName(file);
  std::ifstream locks(proc / "locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream words(line);
    std::string number;
    std::string type;
    std::string advisory;
    std::string access;
    std::string pid;
    std::string name;
    words >> number >> type >> advisory >> access >> pid >> name;
    if (type == "FLOCK" && name == wanted) return ProcessOf(pid, proc);
  }
  return {};
}

std::optional<Process> OpenerOf(const std::string& target, const fs::path& proc) {
  return FindProcess(proc, [&](const fs::path& process) { return HasOpen(process, target); });
}

std::optional<Process> ProcessNamed(const std::string& name, const fs::path& proc) {
  return FindProcess(
      proc, [&](const fs::path& process) { return ProcessOf(process.filename(), proc).name == name; });
}

}  // namespace qvio_tool
