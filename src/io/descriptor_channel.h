#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>

#include "io/closing_patience.h"
#include "io/io_device.h"
#include "io/release_descriptor.h"
#include "util/stop_signal.h"
#include "util/thread.h"
#include "util/unique_fd.h"

namespace qvio {

/// What tells the descriptor channels apart.
struct DescriptorKind {
  uint32_t nothingReady;       ///< notice when readable with 0 bytes waiting; QV_IO_OK: no notice
  uint32_t peerReset;          ///< result of a send that fails with ECONNRESET
  std::size_t largestWrite;    ///< bytes in one write
  bool socket;                 ///< written without the broken-pipe signal, shut down before it is closed
  bool failedReadIsDelivered;  ///< without an error callback the receive callback gets the -1
};

/// A channel over a descriptor: the one send loop and the one receive loop of serial ports and TCP. The kinds
/// add how the descriptor is opened, and their properties.
///
/// The descriptor stays non-blocking; waiting is done in poll, together with the stop signal, so that every
/// state can be closed. Callers see what a blocking descriptor would show.
class DescriptorChannel : public IoDevice, private cppu::Worker {
 public:
  void open(std::shared_ptr<IoDevice> self) final;
  void close(bool wait) final;
  void send(std::span<const uint8_t> bytes) final;

 protected:
  DescriptorChannel(const DescriptorKind& kind, ChannelArguments arguments);

  /// Opens and sets up the device and returns its descriptor, non-blocking. Throws Failure or OptionsError.
  [[nodiscard]] virtual cppu::UniqueFd openDescriptor() const = 0;

 private:
  // The receive thread's work.
  void run() override;
  void stop() noexcept override { stop_->request(); }
  void abandon() noexcept override;

  [[nodiscard]] bool receiveOnce(std::span<uint8_t> buffer);
  [[nodiscard]] bool receiveCounted(std::span<uint8_t> buffer);
  [[nodiscard]] long readSome(std::span<uint8_t> buffer) const;
  void deliverInChunks(std::span<const uint8_t> bytes);
  [[nodiscard]] bool reportFault(uint32_t notice) const;
  void releaseDescriptor() noexcept;

  // Sending; caller holds sendMutex_.
  void sendAll(std::span<const uint8_t> rest);
  [[nodiscard]] long writeSome(std::span<const uint8_t> bytes) const;
  [[nodiscard]] bool waitWritable();
  [[nodiscard]] bool waitWritableWhileClosing();
  [[nodiscard]] bool mayGoOn() { return !stop_->requested() || checkPatience(QueuedBytes(fd_.get())); }
  [[nodiscard]] bool checkPatience(int queued) {
    return patience_.check(written_ - queued, stop_->requestTime());
  }

  const DescriptorKind& kind_;
  /// Guards the descriptor against being closed during a send, and keeps sends apart. Held for a whole send;
  /// the receive thread takes it only to release the descriptor. Nothing else is locked while it is held.
  std::mutex sendMutex_;
  cppu::UniqueFd fd_;                     ///< closed by the receive thread under sendMutex_
  int64_t written_ = 0;                   ///< bytes that the system has taken; guarded by sendMutex_
  ClosingPatience patience_;              ///< guarded by sendMutex_ from the stop request on
  bool peerTalks_ = false;                ///< bytes have been received; receive thread only
  std::optional<cppu::StopSignal> stop_;  ///< there from open on, for the channel's whole life
  cppu::Thread thread_;
};

}  // namespace qvio
