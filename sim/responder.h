#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace qvsim {

/// What a device answers to the bytes of one connection. Used on the event loop's thread only.
class Responder {
 public:
  Responder() = default;
  Responder(const Responder&) = delete;
  Responder& operator=(const Responder&) = delete;
  virtual ~Responder() = default;

  /// Takes the next bytes, however they are cut, and returns the answer to them.
  virtual std::string answer(std::string_view bytes) = 0;
};

/// Makes a responder for each connection of a device.
using MakeResponder = std::function<std::unique_ptr<Responder>()>;

/// Sends everything back.
class Echo final : public Responder {
 public:
  std::string answer(std::string_view bytes) override { return std::string(bytes); }
};

inline std::unique_ptr<Responder> MakeEcho() { return std::make_unique<Echo>(); }

}  // namespace qvsim
