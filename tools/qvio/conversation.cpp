#include "conversation.h"

#include <poll.h>
#include <unistd.h>

#include <array>

#include "output.h"
#include "quorvio/quorvio.h"
#include "text_codec.h"
#include "util/system_call.h"

namespace qvio_tool {

bool Conversation::receiveUntil(Clock::time_point deadline) {
  std::array<pollfd, 1> entry{{{channel_.readyFd(), POLLIN, 0}}};
  if (cppu::PollUntil(entry, deadline) <= 0) return false;
  const auto arrivals = channel_.take();
  if (!arrivals.bytes.empty()) {
    print(arrivals.bytes);
    answer_ += arrivals.bytes;
    lastByte_ = Clock::now();
  }
  for (const auto notice : arrivals.notices) {
    WriteAll(STDERR_FILENO, notices_.note(notice));
    lost_ = lost_ || notice == QV_IO_ERROR_CONNECTION_LOST;
  }
  return true;
}

void Conversation::print(std::string_view bytes) {
  if (format_ == Format::Raw) return WriteAll(STDOUT_FILENO, bytes);
  WriteAll(STDOUT_FILENO, (answer_.empty() ? "" : " ") + ToHex(bytes));
}

void Conversation::finish() {
  WriteAll(STDERR_FILENO, notices_.takeCount());
  if (format_ == Format::Hex && !answer_.empty()) WriteAll(STDOUT_FILENO, "\n");
}

}  // namespace qvio_tool
