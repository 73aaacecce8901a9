#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "sim/responder.h"

namespace qvsim {

/// Answers the question for the protocol id and hands all other bytes on. A frame is
///
///     0xA4, length of the rest (16 bits, low byte first), code, payload, check byte
///
/// and its bytes after the first add up to 0 modulo 256. The question has code 0x01 and no payload, the
/// answer code 0x81 and the protocol id. Any other frame is swallowed.
class Identity final : public Responder {
 public:
  Identity(uint8_t protocolId, std::unique_ptr<Responder> other)
      : protocolId_(protocolId), other_(std::move(other)) {}
  std::string answer(std::string_view bytes) override;

 private:
  std::size_t takeFrame(std::string_view bytes);
  [[nodiscard]] bool isComplete() const;
  [[nodiscard]] std::string answerFrame() const;

  uint8_t protocolId_;
  std::unique_ptr<Responder> other_;
  std::string frame_;  ///< what has come of one; empty: the bytes are for the other responder
};

}  // namespace qvsim
