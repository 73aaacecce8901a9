// How the driver is bound: with it, with one that misses a function, and without it. A failed attempt is
// final, so each case needs a process of its own.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "quorvio/quorvio.h"
#include "sim/ftdi/control.h"
#include "support/loaded_library.h"

namespace qvtest {
namespace {

uint64_t Calls(const char* function) {
  void* const driver = ::dlopen("libftd2xx.so", RTLD_NOW);
  if (driver == nullptr) return 0;
  return reinterpret_cast<decltype(QVSIM_Calls)*>(::dlsym(driver, "QVSIM_Calls"))(function);
}

/// Loads the library, lists, opens, and unloads it; says what happened.
void UseAndExit() {
  std::optional<LoadedLibrary> library(std::in_place);
  const auto constructed = Calls("FTID_Constructor");
  char text[1024] = "#";
  std::size_t size = sizeof text;
  const auto listed = library->find<decltype(QV_IO_EnumerateDevices)>("QV_IO_EnumerateDevices")(
      QV_IO_INTERFACE_USB, "canonical-locator", text, &size);
  uint32_t handle = 0;
  const auto opened = library->find<decltype(QV_IO_Open)>("QV_IO_Open")(&handle, "usb:sn:NOBODY", "", nullptr,
                                                                        nullptr, nullptr);
  library.reset();
  std::fprintf(stderr, "constructed %d, listed %u \"%.15s\" %zu, opened %u, destroyed %d",
               static_cast<int>(constructed), listed, text, size, opened,
               static_cast<int>(Calls("FTID_Destructor")));
  std::_Exit(0);
}

TEST(UsbDriver, IsBoundAsAWholeOrNotAtAll) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";  // a new program, which looks for libraries afresh
  const std::string folder = STAND_IN_FOLDER;
  const struct {
    std::string folder;
    const char* said;
  } rows[] = {{folder, "constructed 1, listed 0 \"usb:sn:QV100001\" 63, opened 3, destroyed 1$"},
              // The chip-id library is shut down although a function of the other one was missing.
              {folder + "/old", "constructed 0, listed 14 \"\" 0, opened 14, destroyed 1$"},
              {"/nowhere", "constructed 0, listed 14 \"\" 0, opened 14, destroyed 0$"}};
  for (const auto& row : rows) {
    ::setenv("LD_LIBRARY_PATH", row.folder.c_str(), 1);
    EXPECT_EXIT(UseAndExit(), testing::ExitedWithCode(0), row.said) << row.folder;
  }
}

}  // namespace
}  // namespace qvtest
