#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "device/application_library.h"
#include "device/processes.h"
#include "doctor/elf_file.h"
#include "nd/connection.h"
#include "quorvio/quorvio.hpp"

namespace qvio_tool {

/// All that the checks look at: a file tree, and what the system answered. Tests describe broken machines.
struct Machine {
  std::filesystem::path root = "/";        ///< folder of /sys, /proc, /dev, and of the libraries
  std::string libraryPath;                 ///< LD_LIBRARY_PATH, with absolute folders
  std::vector<std::string> loaderFolders;  ///< where the loader looks after its cache
  std::string loaderCache;                 ///< as `ldconfig -p` prints it
  std::optional<ElfKind> kind;             ///< the libraries that this program can load
  ApplicationLibrary library;
  std::string builtInVersion;  ///< of libquorvio in this program
  std::string driverProblem;   ///< why FTDI's libraries could not be loaded; empty: they could
  std::vector<quorvind::Interface> interfaces;  ///< that discovery can use
  std::optional<std::string> firewall;          ///< as `nft list ruleset` or `iptables-save` prints it
  bool isRoot = false;                          ///< the user, who may then read the rules of the firewall
  std::vector<quorvio::Device> devices;         ///< network devices that answered a search
  std::string searchProblem;                    ///< why there was no search; empty: there was

  std::function<bool(const std::string& path)> mayUse;  ///< whether the user may read and write a file

  /// The next two return why something does not work, and an empty text if it does.
  std::function<std::string(uint16_t port)> bindProblem;
  std::function<std::string(const quorvind::Interface&)> multicastProblem;

  /// The file of an absolute path.
  [[nodiscard]] std::filesystem::path at(std::string_view path) const {
    return root / std::filesystem::path(path).relative_path();
  }
  [[nodiscard]] bool has(std::string_view path) const;

  /// The first line of a file; empty if it cannot be read.
  [[nodiscard]] std::string line(std::string_view path) const;

  /// The names in a folder, sorted; none if it cannot be read.
  [[nodiscard]] std::vector<std::string> entries(std::string_view folder) const;
};

/// The machine that this program runs on. Searches for devices, which takes about a second; the other
/// questions that cost time are asked when they are called.
Machine ThisMachine();

}  // namespace qvio_tool
