#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace cppu {

/// A descriptor that closes itself.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) noexcept : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    std::swap(fd_, other.fd_);
    other.reset();
    return *this;
  }
  ~UniqueFd() { reset(); }

  [[nodiscard]] int get() const noexcept { return fd_; }
  explicit operator bool() const noexcept { return fd_ >= 0; }

  int release() noexcept { return std::exchange(fd_, -1); }

  void reset() noexcept {
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
  }

 private:
  int fd_ = -1;
};

/// Moves a fresh descriptor above 2; errno is set when the result is empty. Numbers 0 to 2 are free in a
/// program that was started without its standard streams, and a stray printf must not reach a device.
inline UniqueFd AboveStandardStreams(UniqueFd fd) noexcept {
  if (!fd || fd.get() > STDERR_FILENO) return fd;
  return UniqueFd(::fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

}  // namespace cppu
