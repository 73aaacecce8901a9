#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "result_text.h"

namespace qvio_tool {

/// The lines that tell receive notices. A peer that is gone is reported a hundred times a second: a repeated
/// notice is counted, and the count told when another comes or at the end.
class Notices {
 public:
  /// The lines to tell now; empty for a repeated notice.
  [[nodiscard]] std::string note(uint32_t code) {
    if (code == last_) {
      ++repeats_;
      return {};
    }
    auto lines = takeCount();
    last_ = code;
    return lines + "qvio: " + ResultText(code) + "\n";
  }

  /// The line with the count of repetitions; empty when there were none.
  [[nodiscard]] std::string takeCount() {
    const int count = std::exchange(repeats_, 0);
    return count == 0 ? ""
                      : "qvio: " + ResultText(*last_) + " came " + std::to_string(count) + " more times\n";
  }

 private:
  std::optional<uint32_t> last_;
  int repeats_ = 0;
};

}  // namespace qvio_tool
