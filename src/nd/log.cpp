#include "nd/log.h"

#include <atomic>
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
  if (!IsLogged(category)) return;
  auto& log = TheLog();
  const std::lock_guard lock(log.mutex);
  if (log.sink) log.sink(line);
}

void LogSystemWarning(std::string_view text, int error) {
  if (error == 0 || !IsLogged(LogCategory::Warnings)) return;
  Log(LogCategory::Warnings, std::string(text) + ": " + std::generic_category().message(error));
}

}  // namespace quorvind
