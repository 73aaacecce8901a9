#include "util/failure.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <new>

namespace qvio {
namespace {

/// constinit: the first use in a thread must not run code that could fail.
constinit thread_local Reason lastReason;

uint32_t Keep(uint32_t code, std::string_view reason) noexcept {
  lastReason = Reason("%", {reason});
  return code;
}

}  // namespace

Reason::Reason(std::string_view format, ReasonValues values, int error) noexcept {
  for (const auto& value : values) {
    const auto text = format.substr(0, format.find('%'));
    append(text);
    appendValue(value);
    format.remove_prefix(std::min(format.size(), text.size() + 1));
  }
  append(format);
  if (error == 0) return;
  std::array<char, 64> buffer{};
  append(": ");
  append(
      ::strerror_r(error, buffer.data(), buffer.size()));  // unlike std::error_category it allocates nothing
}

void Reason::append(std::string_view text) noexcept {
  const auto fitting = std::min(text.size(), kLongest - size_);
  std::memcpy(text_.data() + size_, text.data(), fitting);
  size_ += fitting;
}

void Reason::appendValue(const ReasonValue& value) noexcept {
  if (value.text_ != nullptr)
    return append(std::string_view(value.text_, static_cast<std::size_t>(value.sizeOrNumber_)));
  std::array<char, std::numeric_limits<uint64_t>::digits10 + 1> digits{};
  const auto* const end =
      std::to_chars(digits.data(), digits.data() + digits.size(), value.sizeOrNumber_).ptr;
  append(std::string_view(digits.data(), end));
}

void Fail(uint32_t code, const char* format, ReasonValues values, int error) {
  throw Failure(code, format, values, error);
}

std::string_view LastFailureReason() noexcept { return lastReason.view(); }

/// Rethrows to find the type: one handler here instead of one in every instance of ResultOf.
uint32_t CurrentExceptionResult() noexcept {
  try {
    throw;
  } catch (const Failure& failure) {
    return Keep(failure.code(), failure.what());
  } catch (const OptionsError& failure) {
    return Keep(QV_IO_ERROR_INVALID_ARGUMENT, failure.what());
  } catch (const std::bad_alloc&) {
    return Keep(QV_IO_ERROR_DRIVER_FAILURE, "out of memory");
  } catch (const std::exception& failure) {
    return Keep(QV_IO_ERROR_DRIVER_FAILURE, failure.what());
  } catch (...) {
    return Keep(QV_IO_ERROR_DRIVER_FAILURE, "unknown failure");
  }
}

}  // namespace qvio
