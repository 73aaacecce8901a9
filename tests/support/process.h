#pragma once

#include <dirent.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace qvtest {

/// What /proc tells of the test's own process.

inline std::vector<std::string> EntriesOf(const char* folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> open(::opendir(folder), ::closedir);
  std::vector<std::string> names;
  while (const auto* entry = ::readdir(open.get())) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  return names;
}

inline std::size_t Descriptors() { return EntriesOf("/proc/self/fd").size(); }

/// Threads with this name. A joined thread may be seen a moment longer.
inline int ThreadsNamed(const std::string& wanted) {
  int threads = 0;
  for (const auto& task : EntriesOf("/proc/self/task")) {
    std::ifstream file("/proc/self/task/" + task + "/comm");
    std::string name;
    if (std::getline(file, name) && name == wanted) ++threads;
  }
  return threads;
}

/// The receive threads of channels.
inline int ReceiveThreads() { return ThreadsNamed("qvio-rx"); }

inline bool IsMapped(const std::string& fileName) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(fileName) != std::string::npos) return true;
  }
  return false;
}

}  // namespace qvtest
