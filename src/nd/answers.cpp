#include "nd/answers.h"

#include <chrono>
#include <exception>
#include <new>

#include "nd/errors.h"

namespace quorvind {
namespace {

/// The exception for the futures of a host that ends; bad_alloc if it cannot be allocated.
std::exception_ptr Cancelled() noexcept {
  try {
    return std::make_exception_ptr(RequestCancelledException("Cancelled"));
  } catch (const std::bad_alloc&) {
    return std::current_exception();
  }
}

}  // namespace

void Answers::dropAll() {
  configurationQueries.dropAll();
  resets.dropAll();
  sets.dropAll();
}

void Answers::cancelAll() noexcept {
  const auto cancelled = Cancelled();
  configurationQueries.failAll(cancelled);
  resets.failAll(cancelled);
  sets.failAll(cancelled);
}

void Answers::dispatch(const QV_ND_Packet& packet, const IP4& sender) {
  switch (packet.OpCode) {
    case opcode::kDiscoverReply:
    case opcode::kDiscoverInform:
      return notify(packet, sender);
    case opcode::kResult:
      return completeWithResult(packet);
    case opcode::kConfiguration:
      return completeWithConfiguration(packet);
    default:
      return;  // another host's request, heard because the networks are shared
  }
}

void Answers::notify(const QV_ND_Packet& packet, const IP4& sender) {
  DiscoverInfo info{.DeviceType = packet.DeviceType,
                    .SerialNumber = packet.SerialNumber,
                    .Address = sender,
                    .LastSeen = std::chrono::steady_clock::now(),
                    .IsReply = packet.OpCode == opcode::kDiscoverReply};
  if (ReadDiscoverInfo(packet, info.ProtocolId, info.Port, info.Available, info.Info)) listeners.notify(info);
}

void Answers::completeWithResult(const QV_ND_Packet& packet) {
  // A Result may answer a request of any kind; its token is in one table at most.
  std::promise<ResultCode> result;
  std::promise<GetDeviceConfigResult> query;
  const bool isResult = resets.take(packet.Token, result) || sets.take(packet.Token, result);
  const bool isQuery = !isResult && configurationQueries.take(packet.Token, query);
  if (!isResult && !isQuery) return;
  ResultCode code{};
  if (ReadResult(packet, code)) return isQuery ? query.set_value({code, {}}) : result.set_value(code);
  const auto failure = std::make_exception_ptr(ProtocolException("Invalid Result packet"));
  isQuery ? query.set_exception(failure) : result.set_exception(failure);
}

void Answers::completeWithConfiguration(const QV_ND_Packet& packet) {
  std::promise<GetDeviceConfigResult> query;
  if (!configurationQueries.take(packet.Token, query)) return;
  DeviceConfig config;
  if (ReadConfiguration(packet, config)) return query.set_value({ResultCode::Success, config});
  query.set_exception(std::make_exception_ptr(ProtocolException("Invalid Configuration packet")));
}

}  // namespace quorvind
