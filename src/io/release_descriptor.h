#pragma once

#include <functional>

#include "util/unique_fd.h"

namespace qvio {

/// Bytes that the system has taken for the device and the device has not taken yet; 0 where the system does
/// not say.
[[nodiscard]] int QueuedBytes(int fd);

/// Whether a closing channel still waits for its device, with so many bytes queued.
using StillWaits = std::function<bool(int queued)>;

/// Closes a terminal after its queued bytes have gone out. Those that are left when the waiting is over are
/// dropped, since the kernel's own close would wait for them half a minute more.
void ReleaseTerminal(cppu::UniqueFd fd, const StillWaits& stillWaits);

/// Closes a socket. TCP answers input that nobody reads with a reset, which drops all bytes that the peer has
/// not acknowledged. So if the peer talks, they go out first, while its input is discarded, as long as the
/// waiting lasts.
/// @param peerTalks  the peer has sent bytes, and may send more
void ReleaseSocket(cppu::UniqueFd fd, bool peerTalks, const StillWaits& stillWaits);

}  // namespace qvio
