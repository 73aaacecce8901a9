#include "contestants.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

namespace qvbench {
namespace {

constexpr std::size_t kSmallRead = 1024;
constexpr int kLookForStopMs = 20;

void SendAll(int fd, std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const auto written = ::write(fd, bytes.data(), bytes.size());
    Require(written > 0, "write");
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
}

void CountBytes(void* inbox, const uint8_t* /*data*/, std::size_t length) {
  static_cast<Inbox*>(inbox)->add(length);
}

}  // namespace

void BareDescriptor::send(std::span<const uint8_t> bytes) const { SendAll(fd_.get(), bytes); }

void BareDescriptor::receive(std::size_t bytes) {
  while (bytes > 0) {
    const auto got = ::read(fd_.get(), buffer_.data(), std::min(buffer_.size(), bytes));
    Require(got > 0, "read");
    bytes -= static_cast<std::size_t>(got);
  }
}

ReceiveThread::ReceiveThread(const Address& address, Style style)
    : ReceiveThread(address, style, CountBytes, &inbox_) {}

ReceiveThread::ReceiveThread(const Address& address, Callback callback, void* user)
    : ReceiveThread(address, Style::SmallReads, callback, user) {}

ReceiveThread::ReceiveThread(const Address& address, Style style, Callback callback, void* user)
    : fd_(address.open()), style_(style), callback_(callback), user_(user), thread_([this](const auto& stop) {
        run(stop);
      }) {}

ReceiveThread::~ReceiveThread() {
  thread_.request_stop();
  if (style_ == Style::Blocking) ::shutdown(fd_.get(), SHUT_RDWR);
}

void ReceiveThread::send(std::span<const uint8_t> bytes) const { SendAll(fd_.get(), bytes); }

void ReceiveThread::run(const std::stop_token& stop) {
  std::array<uint8_t, kLargePiece> buffer;
  while (!stop.stop_requested()) {
    pollfd entry{fd_.get(), POLLIN, 0};
    if (style_ != Style::Blocking && ::poll(&entry, 1, kLookForStopMs) <= 0) continue;
    style_ == Style::SmallReads ? readWaiting() : readOnce(buffer);
  }
}

void ReceiveThread::readOnce(std::span<uint8_t> buffer) {
  const auto got = ::read(fd_.get(), buffer.data(), buffer.size());
  if (got > 0) callback_(user_, buffer.data(), static_cast<std::size_t>(got));
}

void ReceiveThread::readWaiting() {
  int waiting = 0;
  Require(::ioctl(fd_.get(), FIONREAD, &waiting) == 0, "FIONREAD");
  auto left = static_cast<std::size_t>(waiting);
  std::array<uint8_t, kSmallRead> buffer;
  while (left > 0) {
    const auto got = ::read(fd_.get(), buffer.data(), std::min(buffer.size(), left));
    Require(got > 0, "read");
    callback_(user_, buffer.data(), static_cast<std::size_t>(got));
    left -= static_cast<std::size_t>(got);
  }
}

AsioStream::AsioStream(const Address& address) : stream_(context_, address.open().release()) {
  readSome();
  thread_ = std::jthread([this] { context_.run(); });
}

void AsioStream::send(std::span<const uint8_t> bytes) {
  asio::write(stream_, asio::buffer(bytes.data(), bytes.size()));
}

void AsioStream::readSome() {
  stream_.async_read_some(asio::buffer(buffer_), [this](const asio::error_code& error, std::size_t got) {
    if (error) return;
    inbox_.add(got);
    readSome();
  });
}

Quorvio::Quorvio(const Address& address) : channel_(address, &inbox_, CountBytes) {}

void Quorvio::send(std::span<const uint8_t> bytes) const {
  Require(channel_.send(bytes) == QV_IO_OK, "QV_IO_Send");
}

}  // namespace qvbench
