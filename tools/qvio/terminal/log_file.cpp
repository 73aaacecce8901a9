#include "terminal/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <vector>

#include "terminal/failure.h"
#include "terminal/text.h"
#include "terminal/time_text.h"
#include "util/system_call.h"

namespace qvio_tool {
namespace {

namespace fs = std::filesystem;

std::string CannotWrite(const std::string& path, const std::string& why) {
  return "cannot write " + OneLine(path) + ": " + why;
}

/// Where a file that ended at this time is put: the first name that is free.
fs::path NameAside(const fs::path& path, std::chrono::system_clock::time_point time) {
  for (;; time += std::chrono::milliseconds(1)) {
    auto aside =
        path.parent_path() / (path.stem().string() + '-' + FileTime(time) + path.extension().string());
    if (!fs::exists(aside)) return aside;
  }
}

/// Whether the name is one that NameAside() has given.
bool IsAside(const fs::path& name, const fs::path& path) {
  const auto text = name.filename().string();
  const auto begin = path.stem().string() + '-';
  const auto end = 'Z' + path.extension().string();
  constexpr std::string_view kTime = "20260504T110201.123";
  return text.size() == begin.size() + kTime.size() + end.size() && text.starts_with(begin) &&
         text.ends_with(end);
}

/// Removes all but the newest files put aside.
void RemoveOld(const fs::path& path, std::size_t kept) {
  const auto folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
  std::vector<fs::path> aside;
  for (const auto& entry : fs::directory_iterator(folder))
    if (IsAside(entry.path(), path)) aside.push_back(entry.path());
  if (aside.size() <= kept) return;
  std::ranges::sort(aside);
  for (std::size_t i = 0; i < aside.size() - kept; ++i) fs::remove(aside[i]);
}

}  // namespace

LogFile::LogFile(std::string path, Rotation rotation) : path_(std::move(path)), rotation_(rotation) {
  open();
}

void LogFile::open() {
  constexpr mode_t kMode = 0666;  // less the user's mask
  fd_ = cppu::UniqueFd(::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, kMode));
  struct stat file {};
  if (!fd_ || ::fstat(fd_.get(), &file) != 0) throw CommandFailure(CannotWrite(path_, std::strerror(errno)));
  if (!S_ISREG(file.st_mode)) throw CommandFailure(CannotWrite(path_, "not an ordinary file"));
  size_ = static_cast<uint64_t>(file.st_size);
  const auto now = std::chrono::system_clock::now();
  period_ = periodOf(size_ > 0 ? std::chrono::system_clock::from_time_t(file.st_mtime) : now);
}

void LogFile::append(std::string_view bytes) {
  if (bytes.empty()) return;
  const auto now = std::chrono::system_clock::now();
  if (isFull(bytes.size(), now)) rotate(now);
  size_ += bytes.size();
  period_ = periodOf(now);
  while (!bytes.empty()) {
    const auto written = cppu::Uninterrupted([&] { return ::write(fd_.get(), bytes.data(), bytes.size()); });
    if (written < 0) throw CommandFailure(CannotWrite(path_, std::strerror(errno)));
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

bool LogFile::isFull(std::size_t more, Time now) const {
  if (size_ == 0) return false;
  return (rotation_.bytes > 0 && size_ + more > rotation_.bytes) || periodOf(now) != period_;
}

int64_t LogFile::periodOf(Time time) const {
  if (rotation_.period.count() == 0) return 0;
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  ::localtime_r(&seconds, &local);
  return (seconds + local.tm_gmtoff) / rotation_.period.count();
}

void LogFile::rotate(Time now) try {
  fs::rename(path_, NameAside(path_, now));
  open();
  if (rotation_.kept > 0) RemoveOld(path_, rotation_.kept);
} catch (const fs::filesystem_error& error) {
  throw CommandFailure(CannotWrite(path_, error.code().message()));
}

}  // namespace qvio_tool
