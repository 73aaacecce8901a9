#include "device/exchange.h"

#include <unistd.h>

#include "terminal/failure.h"
#include "terminal/output.h"

namespace qvio_tool {
namespace {

constexpr std::size_t kKeptAnswer = std::size_t{1} << 20U;

}  // namespace

bool Exchange::send(const std::string& bytes, cppu::Deadline deadline) {
  if (!channel_.send(bytes)) throw CommandFailure("too many sends are waiting");
  sent_ = false;
  while (!sent_ && !lost_ && !cppu::HasPassed(deadline) && receiveUntil(deadline)) {
  }
  return sent_;
}

bool Exchange::receiveUntil(cppu::Deadline deadline) {
  if (channel_.wait(cppu::Sooner(rows_.due(), deadline))) {
    for (const auto& arrival : channel_.take()) handle(arrival);
    return true;
  }
  finish();
  return !cppu::HasPassed(deadline);
}

void Exchange::handle(const Arrival& arrival) {
  switch (arrival.kind) {
    case Arrival::Kind::Bytes:
      if (!prints_) return;
      WriteAll(STDOUT_FILENO, hex_ ? rows_.add(arrival.text, Clock::now()) : arrival.text);
      if (answer_.size() > 2 * kKeptAnswer) answer_.erase(0, kKeptAnswer);
      answer_ += arrival.text;
      received_ += arrival.text.size();
      lastByte_ = Clock::now();
      return;
    case Arrival::Kind::Lost:
      lost_ = true;
      [[fallthrough]];
    case Arrival::Kind::Notice:
      return WriteAll(STDERR_FILENO, "qvio: " + arrival.text + '\n');
    case Arrival::Kind::Sent:
      sent_ = true;
      return;
    case Arrival::Kind::SendFailed:
      throw CommandFailure(arrival.text);
  }
}

void Exchange::finish() { WriteAll(STDOUT_FILENO, rows_.takeRest()); }

}  // namespace qvio_tool
