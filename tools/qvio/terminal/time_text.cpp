#include "terminal/time_text.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace qvio_tool {
namespace {

using Time = std::chrono::system_clock::time_point;

/// A time as the parts that are printed.
struct Parts {
  std::tm fields{};
  std::array<char, 16> date{};   ///< 2026-05-04
  std::array<char, 16> clock{};  ///< 13:02:01.123
};

/// @param broken  localtime_r or gmtime_r
Parts PartsOf(Time time, std::tm* (*broken)(const std::time_t*, std::tm*)) {
  Parts parts;
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const std::time_t whole = std::chrono::system_clock::to_time_t(seconds);
  broken(&whole, &parts.fields);
  const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(time - seconds).count();
  std::array<char, 16> wholeClock{};
  std::strftime(parts.date.data(), parts.date.size(), "%F", &parts.fields);
  std::strftime(wholeClock.data(), wholeClock.size(), "%T", &parts.fields);
  std::snprintf(parts.clock.data(), parts.clock.size(), "%.8s.%03d", wholeClock.data(),
                static_cast<int>(milliseconds));
  return parts;
}

}  // namespace

std::string LocalTime(Time time) {
  const auto parts = PartsOf(time, ::localtime_r);
  return std::string(parts.date.data()) + ' ' + parts.clock.data();
}

std::string Rfc3339Time(Time time) {
  const auto parts = PartsOf(time, ::localtime_r);
  const auto minutes = static_cast<int>(parts.fields.tm_gmtoff / 60);
  std::array<char, 24> zone{};
  std::snprintf(zone.data(), zone.size(), "%c%02d:%02d", minutes < 0 ? '-' : '+', std::abs(minutes) / 60,
                std::abs(minutes) % 60);
  return std::string(parts.date.data()) + 'T' + parts.clock.data() + zone.data();
}

std::string FileTime(Time time) {
  const auto parts = PartsOf(time, ::gmtime_r);
  auto text = std::string(parts.date.data()) + 'T' + parts.clock.data() + 'Z';
  std::erase_if(text, [](char letter) { return letter == '-' || letter == ':'; });
  return text;
}

}  // namespace qvio_tool
