#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <vector>

namespace qvsim {

/// The scripted faults, and how often each function was called. Any thread.
class CallScript {
 public:
  /// Whether the driver has a function of this name.
  static bool knows(std::string_view function);

  /// Counts a call; returns the status that was scripted for it, or 0.
  uint32_t enter(std::string_view name);

  /// @param call    the how many next one fails; 0: every one
  /// @param status  0: nothing fails any more that was scripted for this name
  void fail(std::string_view name, uint32_t call, uint32_t status);

  [[nodiscard]] uint64_t calls(std::string_view function) const;
  [[nodiscard]] uint64_t calls() const;
  void forgetCalls();

  struct WriteFault {
    uint32_t acceptAtMost = UINT32_MAX;
    uint32_t reportMore = 0;
  };

  void limitWrites(uint32_t writes, uint32_t acceptAtMost);
  void exaggerateWrites(uint32_t writes, uint32_t more);
  void exaggerateReads(uint32_t reads, uint32_t more);
  WriteFault nextWrite();
  uint32_t nextRead();  ///< what it reports in addition

  /// Every read fails while the status says that bytes are there.
  [[nodiscard]] bool promisesBytes() const;
  void failReads(uint32_t status);

  /// Back to the start.
  void clear();

 private:
  struct Failure {
    uint64_t call;  ///< 0: every one
    uint32_t status;
  };
  struct Function {
    uint64_t calls = 0;
    uint64_t ever = 0;  ///< forgetting the calls must not move the failures
    std::vector<Failure> failures;
  };
  /// An effect on the next calls.
  struct Effect {
    uint32_t calls = 0;
    uint32_t value = 0;
  };
  static uint32_t use(Effect& effect, uint32_t otherwise);

  static constexpr std::size_t kFunctionCount = 26;
  struct State {
    std::array<Function, kFunctionCount> functions;
    Effect shortWrites;
    Effect longWrites;
    Effect longReads;
    bool promisesBytes = false;
  };

  static const std::array<std::string_view, kFunctionCount>& names();
  static std::size_t indexOf(std::string_view function);

  mutable std::mutex mutex_;  ///< guards state_
  State state_;
};

}  // namespace qvsim
