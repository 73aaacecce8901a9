#include "faults/allocations.h"

#include <execinfo.h>
#include <link.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <span>
#include <string_view>

namespace qvtest {
namespace {

/// The code of one shared library.
struct Code {
  std::string_view name;
  uintptr_t begin = 0;
  uintptr_t end = 0;
};

constinit std::atomic<long> toGo{0};
constinit std::atomic<long> live{0};
constinit thread_local bool isLooking = false;
constinit std::array<Code, 3> libraries{{{"libquorvio.so"}, {"libftd2xx.so"}, {"libftchipid.so"}}};

int NoteCode(dl_phdr_info* info, std::size_t /*size*/, void* /*unused*/) {
  for (auto& library : libraries) {
    if (std::string_view(info->dlpi_name).find(library.name) == std::string_view::npos) continue;
    for (const auto& part : std::span(info->dlpi_phdr, info->dlpi_phnum)) {
      if (part.p_type != PT_LOAD || (part.p_flags & PF_X) == 0) continue;
      library.begin = info->dlpi_addr + part.p_vaddr;
      library.end = library.begin + part.p_memsz;
    }
  }
  return 0;
}

/// Whether the innermost of the libraries that the calling thread is in is ours.
bool IsInLibrary() {
  std::array<void*, 64> callers{};
  const auto depth = static_cast<std::size_t>(::backtrace(callers.data(), static_cast<int>(callers.size())));
  for (const auto* const caller : std::span(callers).first(depth)) {
    const auto address = reinterpret_cast<uintptr_t>(caller);
    for (const auto& library : libraries) {
      if (address >= library.begin && address < library.end) return &library == libraries.data();
    }
  }
  return false;
}

}  // namespace

void FailAllocation(long nth) {
  if (libraries[0].end == 0) {
    ::dl_iterate_phdr(NoteCode, nullptr);
    IsInLibrary();  // its first use allocates
  }
  toGo = nth;
}

bool HasFailed() { return toGo.exchange(0) <= 0; }

long LiveBlocks() { return live; }

bool MayAllocate() {
  if (toGo <= 0 || isLooking) return true;
  isLooking = true;
  const bool counts = IsInLibrary();
  isLooking = false;
  return !counts || toGo.fetch_sub(1) != 1;
}

void NoteBlock(const void* block, long change) {
  if (block != nullptr) live += change;
}

}  // namespace qvtest
