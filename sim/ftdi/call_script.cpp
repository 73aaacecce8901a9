#include "sim/ftdi/call_script.h"

#include <algorithm>
#include <iterator>

namespace qvsim {

const std::array<std::string_view, CallScript::kFunctionCount>& CallScript::names() {
  static constexpr std::array<std::string_view, kFunctionCount> sorted{"FTID_Constructor",
                                                                       "FTID_Destructor",
                                                                       "FTID_GetChipIDFromHandle",
                                                                       "FTID_GetNumDevices",
                                                                       "FT_Close",
                                                                       "FT_CreateDeviceInfoList",
                                                                       "FT_EE_Read",
                                                                       "FT_EE_UARead",
                                                                       "FT_EE_UASize",
                                                                       "FT_EE_UAWrite",
                                                                       "FT_GetDeviceInfoList",
                                                                       "FT_GetStatus",
                                                                       "FT_Open",
                                                                       "FT_OpenEx",
                                                                       "FT_Purge",
                                                                       "FT_Read",
                                                                       "FT_ReadEE",
                                                                       "FT_SetBaudRate",
                                                                       "FT_SetBitMode",
                                                                       "FT_SetDataCharacteristics",
                                                                       "FT_SetEventNotification",
                                                                       "FT_SetFlowControl",
                                                                       "FT_SetLatencyTimer",
                                                                       "FT_SetTimeouts",
                                                                       "FT_SetUSBParameters",
                                                                       "FT_Write"};
  static_assert(std::ranges::is_sorted(sorted));
  return sorted;
}

bool CallScript::knows(std::string_view function) { return std::ranges::binary_search(names(), function); }

std::size_t CallScript::indexOf(std::string_view function) {
  return static_cast<std::size_t>(
      std::distance(names().begin(), std::ranges::lower_bound(names(), function)));
}

uint32_t CallScript::enter(std::string_view name) {
  const std::lock_guard lock(mutex_);
  auto& function = state_.functions.at(indexOf(name));
  ++function.calls;
  const auto number = ++function.ever;
  const auto failure = std::ranges::find_if(
      function.failures, [&](const Failure& one) { return one.call == 0 || one.call == number; });
  if (failure == function.failures.end()) return 0;
  const auto status = failure->status;
  if (failure->call != 0) function.failures.erase(failure);
  return status;
}

void CallScript::fail(std::string_view name, uint32_t call, uint32_t status) {
  const std::lock_guard lock(mutex_);
  auto& function = state_.functions.at(indexOf(name));
  if (status == 0) return function.failures.clear();
  function.failures.push_back({call == 0 ? 0 : function.ever + call, status});
}

uint64_t CallScript::calls(std::string_view function) const {
  const std::lock_guard lock(mutex_);
  return state_.functions.at(indexOf(function)).calls;
}

uint64_t CallScript::calls() const {
  const std::lock_guard lock(mutex_);
  uint64_t all = 0;
  for (const auto& function : state_.functions) all += function.calls;
  return all;
}

void CallScript::forgetCalls() {
  const std::lock_guard lock(mutex_);
  for (auto& function : state_.functions) function.calls = 0;
}

void CallScript::limitWrites(uint32_t writes, uint32_t acceptAtMost) {
  const std::lock_guard lock(mutex_);
  state_.shortWrites = {writes, acceptAtMost};
}

void CallScript::exaggerateWrites(uint32_t writes, uint32_t more) {
  const std::lock_guard lock(mutex_);
  state_.longWrites = {writes, more};
}

void CallScript::exaggerateReads(uint32_t reads, uint32_t more) {
  const std::lock_guard lock(mutex_);
  state_.longReads = {reads, more};
}

uint32_t CallScript::use(Effect& effect, uint32_t otherwise) {
  if (effect.calls == 0) return otherwise;
  --effect.calls;
  return effect.value;
}

CallScript::WriteFault CallScript::nextWrite() {
  const std::lock_guard lock(mutex_);
  const auto acceptAtMost = use(state_.shortWrites, UINT32_MAX);
  return {acceptAtMost, use(state_.longWrites, 0)};
}

uint32_t CallScript::nextRead() {
  const std::lock_guard lock(mutex_);
  return use(state_.longReads, 0);
}

bool CallScript::promisesBytes() const {
  const std::lock_guard lock(mutex_);
  return state_.promisesBytes;
}

void CallScript::failReads(uint32_t status) {
  fail("FT_Read", 0, 0);
  if (status != 0) fail("FT_Read", 0, status);
  const std::lock_guard lock(mutex_);
  state_.promisesBytes = status != 0;
}

void CallScript::clear() {
  const std::lock_guard lock(mutex_);
  state_ = {};
}

}  // namespace qvsim
