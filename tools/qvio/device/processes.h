#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>

namespace qvio_tool {

/// A running process, as /proc shows it.
struct Process {
  std::string id;
  std::string name;

  /// "NAME (pid NUMBER)".
  [[nodiscard]] std::string text() const { return name + " (pid " + id + ")"; }
};

/// The process that holds the advisory lock of a file.
std::optional<Process> LockHolder(const struct stat& file, const std::filesystem::path& proc = "/proc");

/// A process, except this one, that has a file open which /proc shows as `target`: a path, or
/// "socket:[INODE]". The open files of other users' processes are visible only to root.
std::optional<Process> OpenerOf(const std::string& target, const std::filesystem::path& proc = "/proc");

/// A process with this name.
std::optional<Process> ProcessNamed(const std::string& name, const std::filesystem::path& proc = "/proc");

}  // namespace qvio_tool
