#pragma once

#include <dirent.h>

#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qvtest {

/// From /proc, about the test's own process.

inline std::vector<std::string> EntriesOf(const char* folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> open(::opendir(folder), ::closedir);
  std::vector<std::string> names;
  while (const auto* entry = ::readdir(open.get())) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  return names;
}

inline std::size_t Descriptors() { return EntriesOf("/proc/self/fd").size(); }

/// The folders of the threads with this name. A joined thread may be seen a moment longer.
inline std::vector<std::string> TasksNamed(const std::string& wanted) {
  std::vector<std::string> tasks;
  for (const auto& task : EntriesOf("/proc/self/task")) {
    auto folder = "/proc/self/task/" + task;
    std::ifstream file(folder + "/comm");
    std::string name;
    if (std::getline(file, name) && name == wanted) tasks.push_back(std::move(folder));
  }
  return tasks;
}

inline int ThreadsNamed(const std::string& wanted) { return static_cast<int>(TasksNamed(wanted).size()); }

/// The signals that the first thread with this name blocks, as /proc writes them; empty without such a
/// thread.
inline std::string SignalsBlockedBy(const std::string& thread) {
  const auto tasks = TasksNamed(thread);
  std::ifstream file(tasks.empty() ? "" : tasks.front() + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("SigBlk:")) return line;
  }
  return {};
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
