// How the driver is bound: with it, with one that misses a function, and without it. Each case is run in a
// process of its own, since a failed attempt is final.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "quorvio/quorvio.h"
#include "sim/ftdi/control.h"
#include "util/system_call.h"

namespace qvtest {
namespace {

uint64_t Calls(const char* function) {
  void* const driver = ::dlopen("libftd2xx.so", RTLD_NOW);
  if (driver == nullptr) return 0;
  return reinterpret_cast<decltype(QVSIM_Calls)*>(::dlsym(driver, "QVSIM_Calls"))(function);
}

/// Loads the library, lists, opens, and unloads it; the text says what happened.
std::string Use() {
  void* const library = ::dlopen(QUORVIO_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return ::dlerror();
  const auto constructed = Calls("FTID_Constructor");
  char text[1024] = "#";
  std::size_t size = sizeof text;
  const auto listed = reinterpret_cast<decltype(QV_IO_EnumerateDevices)*>(
      ::dlsym(library, "QV_IO_EnumerateDevices"))(QV_IO_INTERFACE_USB, "canonical-locator", text, &size);
  uint32_t handle = 0;
  const auto opened = reinterpret_cast<decltype(QV_IO_Open)*>(::dlsym(library, "QV_IO_Open"))(
      &handle, "usb:sn:NOBODY", "", nullptr, nullptr, nullptr);
  ::dlclose(library);
  return "constructed " + std::to_string(constructed) + ", listed " + std::to_string(listed) + " \"" +
         std::string(text).substr(0, 15) + "\" " + std::to_string(size) + ", opened " +
         std::to_string(opened) + ", destroyed " + std::to_string(Calls("FTID_Destructor"));
}

/// Runs this program again, with another folder for libraries, to print what Use() says.
std::string UseWith(const std::string& folder) {
  const auto self = std::string("/proc/") + std::to_string(::getpid()) + "/exe";
  const auto command = "LD_LIBRARY_PATH=" + folder + " QVIO_TEST_USE=1 " + self + " 2>&1";
  FILE* const pipe = ::popen(command.c_str(), "r");
  std::string output;
  char byte = 0;
  const auto read = [&] { return ::read(::fileno(pipe), &byte, 1); };
  while (cppu::Uninterrupted(read) == 1) output += byte;
  ::pclose(pipe);
  return output.substr(output.find("constructed"));
}

TEST(UsbDriver, IsBoundAsAWholeOrNotAtAll) {
  const std::string folder = STAND_IN_FOLDER;
  EXPECT_EQ(UseWith(folder), "constructed 1, listed 0 \"usb:sn:QV100001\" 63, opened 3, destroyed 1");
  EXPECT_EQ(UseWith(folder + "/old"), "constructed 0, listed 14 \"\" 0, opened 14, destroyed 1")
      << "the chip-id library is shut down although another function was missing";
  EXPECT_EQ(UseWith("/nowhere"), "constructed 0, listed 14 \"\" 0, opened 14, destroyed 0");
}

/// In the process that UseWith starts: no test is run.
[[gnu::constructor]] void UseInstead() {
  if (std::getenv("QVIO_TEST_USE") == nullptr) return;
  std::fputs(Use().c_str(), stdout);
  std::fflush(stdout);
  ::_exit(0);
}

}  // namespace
}  // namespace qvtest
