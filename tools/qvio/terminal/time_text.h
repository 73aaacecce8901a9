#pragma once

#include <chrono>
#include <string>

namespace qvio_tool {

/// The local time, as "2026-05-04 13:02:01.123".
std::string LocalTime(std::chrono::system_clock::time_point time);

/// The local time as RFC 3339 has it: "2026-05-04T13:02:01.123+02:00".
std::string Rfc3339Time(std::chrono::system_clock::time_point time);

/// The time of UTC for names of files, which sort by it: "20260504T110201.123Z".
std::string FileTime(std::chrono::system_clock::time_point time);

}  // namespace qvio_tool
