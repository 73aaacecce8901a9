#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace qvbench {

/// A step that fails spoils every figure after it, and leaves threads that wait for ever: it ends the
/// program.
inline void Require(bool succeeded, const char* step) {
  if (succeeded) return;
  std::perror(step);
  std::_Exit(EXIT_FAILURE);
}

/// A descriptor that closes itself.
class Descriptor {
 public:
  /// Takes the result of the call that opens it; a failed one ends the program.
  Descriptor(int fd, const char* step) : fd_(fd) { Require(fd >= 0, step); }
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }

  [[nodiscard]] int get() const { return fd_; }
  [[nodiscard]] int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

}  // namespace qvbench
