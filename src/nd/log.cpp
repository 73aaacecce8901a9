#include "nd/log.h"

#include <atomic>
#include <exception>
#include <mutex>
#include <system_error>
#include <utility>

#include "util/never_destroyed.h"

namespace quorvind {
namespace {

struct DiscoveryLog {
  std::mutex mutex;  ///< guards the sink and keeps lines apart; a leaf
  LogSink sink;
  /// What is written at all: the mask, or nothing without a sink.
  std::atomic<LogMask> effective{LogMask{}};
};

DiscoveryLog& TheLog() {
  static cppu::NeverDestroyed<DiscoveryLog> log;
  return log.value;
}

}  // namespace

void SetLog(LogSink sink, LogMask mask) {
  auto& log = TheLog();
  const std::lock_guard lock(log.mutex);
  log.effective = sink ? mask : LogMask{};
  log.sink = std::move(sink);
}

bool IsLogged(LogCategory category) noexcept { return TheLog().effective.load().has(category); }

void Log(LogCategory category, const std::string& line) {
  // Asked again: callers that build no text of their own do not ask.
  if (!IsLogged(category)) return;
  auto& log = TheLog();
  const std::lock_guard lock(log.mutex);
  if (log.sink) log.sink(line);
}

void LogWarning(std::string_view text, std::string_view detail) noexcept {
  if (!IsLogged(LogCategory::Warnings)) return;
  try {
    Log(LogCategory::Warnings, std::string(text).append(": ").append(detail));
  } catch (const std::exception&) {
    return;  // no memory for the line
  }
}

void LogSystemWarning(std::string_view text, int error) noexcept {
  if (error == 0 || !IsLogged(LogCategory::Warnings)) return;
  try {
    LogWarning(text, std::generic_category().message(error));
  } catch (const std::exception&) {
    return;  // as above
  }
}

}  // namespace quorvind
