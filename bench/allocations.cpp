#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "channel.h"
#include "inbox.h"
#include "limit_measures.h"
#include "limit_table.h"
#include "peer.h"

// The allocation functions of the whole process, the shared library's calls included, are these: each counts
// and goes on to that of the C library. operator new comes here through malloc.
// NOLINTBEGIN(bugprone-reserved-identifier): the names are the C library's
namespace {
std::atomic<std::size_t> allocationCount = 0;
}
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t nmemb, std::size_t size);
void* __libc_realloc(void* ptr, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* malloc(std::size_t size) {
  ++allocationCount;
  return __libc_malloc(size);
}
void* calloc(std::size_t nmemb, std::size_t size) {
  ++allocationCount;
  return __libc_calloc(nmemb, size);
}
void* realloc(void* ptr, std::size_t size) {
  ++allocationCount;
  return __libc_realloc(ptr, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  ++allocationCount;
  return __libc_memalign(alignment, size);
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace qvbench {
namespace {

template <class Action>
double AllocationsDuring(Action action) {
  const auto before = allocationCount.load();
  action();
  return static_cast<double>(allocationCount.load() - before);
}

void CountBytes(void* inbox, const uint8_t* /*data*/, std::size_t length) {
  static_cast<Inbox*>(inbox)->add(length);
}

/// Sends the message that many times and awaits the answer each time.
double AllocationsOfTraffic(Line line, Peer::Script script, const std::vector<uint8_t>& message,
                            std::size_t answer, int rounds) {
  const Peer peer(line, script);
  Inbox inbox;
  const Channel channel(peer.address(), &inbox, CountBytes);
  const auto exchange = [&] {
    Require(channel.send(message) == QV_IO_OK, "QV_IO_Send");
    inbox.await(answer);
  };
  exchange();  // what is done but once is no cost of a chunk or a send
  return AllocationsDuring([&] {
    for (int round = 0; round < rounds; ++round) exchange();
  });
}

void ShowThatTheLibraryIsCounted() {
  const Peer peer(Line::Tcp, Echo);
  const auto allocations = AllocationsDuring([&] { const Channel opened(peer.address(), nullptr, nullptr); });
  Require(allocations > 0, "counting the allocations of the library");
  PrintLimit("opening and closing (shows that allocations are counted)", allocations, -1, "allocations");
}

}  // namespace

void MeasureAllocations() {
  constexpr int kRounds = 1000;
  const std::vector<uint8_t> request(64);
  const std::vector<uint8_t> large(kBulk / 8);
  ShowThatTheLibraryIsCounted();
  PrintLimit("512 MiB received, TCP", AllocationsOfTraffic(Line::Tcp, Flood, {1}, kBulk, 1), 0,
             "allocations");
  PrintLimit("1000 round trips of 64 bytes, TCP",
             AllocationsOfTraffic(Line::Tcp, Echo, request, request.size(), kRounds), 0, "allocations");
  PrintLimit("1000 round trips of 64 bytes, terminal",
             AllocationsOfTraffic(Line::PseudoTerminal, Echo, request, request.size(), kRounds), 0,
             "allocations");
  PrintLimit("64 MiB in one send and back, TCP",
             AllocationsOfTraffic(Line::Tcp, Echo, large, large.size(), 1), 0, "allocations");
}

}  // namespace qvbench
