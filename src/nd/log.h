#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "util/flags.h"

namespace quorvind {

/// The discovery log of the process. The library itself writes nothing; a program that is built with its
/// sources may set a sink.
enum class LogCategory : uint32_t { Warnings = 1, Packets = 2, RawDatagrams = 4 };
using LogMask = cppu::Flags<LogCategory>;

/// Takes a finished line, without line end; lines do not interleave. Called with the log's lock held, on any
/// thread: it must not call back into discovery.
using LogSink = std::function<void(const std::string& line)>;

/// Replaces sink and mask; the empty sink switches the log off. On return the sink set before is not running.
void SetLog(LogSink sink, LogMask mask = {LogCategory::Warnings});

/// Whether a line of the category would be written. Cheap: callers ask before they build a line.
bool IsLogged(LogCategory category) noexcept;

/// Writes the line if its category is logged.
void Log(LogCategory category, const std::string& line);

/// Logs "TEXT: DETAIL" as a warning. Drops the line if it cannot be allocated: exception handlers call
/// this, and a failed allocation may be what they report.
void LogWarning(std::string_view text, std::string_view detail) noexcept;

/// The same with the system's text for `error`; nothing when that is 0.
void LogSystemWarning(std::string_view text, int error) noexcept;

}  // namespace quorvind
